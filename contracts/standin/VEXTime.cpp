#include "VEXTime.h"

#include "VEXAllocator.h"
#include "VEXUnicodeString.h"

#include <ctime>
#include <vector>

VEXTime::VEXTime() : _seconds(std::time(nullptr)) {}

std::int64_t VEXTime::Gettime_t() const {
    return _seconds;
}

// The format is the caller's.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
VEXUnicodeString VEXTime::ConvertToString(const VEXUnicodeString& iFormat, int) const {
    const std::time_t seconds = _seconds;
    std::tm local;
    if (localtime_r(&seconds, &local) == nullptr) return VEXUnicodeString();
    // strftime returns 0 for an empty text and for a buffer that is too small. With a dot appended,
    // the text is never empty, so 0 means too small. The dot is cut off at the end.
    const VEXUnicodeString format = iFormat + ".";
    std::vector<char, VEXAllocator<char>> text(64);
    std::size_t length = 0;
    while ((length = std::strftime(text.data(), text.size(), format, &local)) == 0) {
        text.resize(2 * text.size());
    }
    return VEXUnicodeString(text.data(), length - 1);
}
#pragma GCC diagnostic pop
