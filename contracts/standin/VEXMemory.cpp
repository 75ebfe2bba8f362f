#include "VEXMemory.h"

#include "RawStorage.h"

void* VEXMemAlloc(std::size_t iSize) {
    return AllocateOrStop(iSize);
}

void* VEXUnsecuredMemAlloc(std::size_t iSize) {
    return std::malloc(iSize > 0 ? iSize : 1);
}

void VEXMemFree(void* iBlock) {
    std::free(iBlock);
}
