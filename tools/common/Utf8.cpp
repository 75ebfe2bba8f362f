#include "Utf8.h"

#include <cstdint>

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
constexpr std::uint32_t kSmallest[] = {
    0, 0, 0x80, 0x800, 0x10000};  // by length: shorter forms are refused
constexpr std::uint32_t kLargest = 0x10FFFF;

std::uint32_t Byte(std::string_view iText, std::size_t iPlace) {
    return static_cast<unsigned char>(iText[iPlace]);
}

/// Bytes that a character takes, as its first byte tells; 0 for a byte that starts none.
std::size_t LengthByFirst(std::uint32_t iFirst) {
    if (iFirst < 0x80) return 1;
    if (iFirst >= 0xC0 && iFirst < 0xE0) return 2;
    if (iFirst >= 0xE0 && iFirst < 0xF0) return 3;
    return iFirst >= 0xF0 && iFirst < 0xF8 ? 4 : 0;
}

/// Bytes of the character at the start of a text; 0 when there is none.
std::size_t CharacterLength(std::string_view iText) {
    const std::size_t length = LengthByFirst(Byte(iText, 0));
    if (length <= 1) return length;
    if (length > iText.size()) return 0;
    std::uint32_t character = Byte(iText, 0) & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((Byte(iText, i) & 0xC0U) != 0x80) return 0;
        character = character << 6U | (Byte(iText, i) & 0x3FU);
    }
    const bool isSurrogate = character >= 0xD800 && character < 0xE000;
    return character >= kSmallest[length] && character <= kLargest && !isSurrogate ? length : 0;
}

}  // namespace

std::string ValidUtf8(std::string_view iText) {
    std::string valid;
    while (!iText.empty()) {
        const std::size_t length = CharacterLength(iText);
        valid += length > 0 ? iText.substr(0, length) : kReplacement;
        iText.remove_prefix(length > 0 ? length : 1);
    }
    return valid;
}
