#include "VEXSleep.h"

#include <chrono>
#include <ratio>
#include <thread>

void VEXSleep(int iDuration) {
    using HalfMilliseconds = std::chrono::duration<int, std::ratio<1, 2000>>;
    std::this_thread::sleep_for(HalfMilliseconds(iDuration));
}
