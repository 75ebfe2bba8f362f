#ifndef VEXString_h
#define VEXString_h

#include "GridloomContractsExport.h"
#include "VEXAllocator.h"

#include <string>

/// A narrow text, copied with its content. None of its operations fails.
class GRIDLOOM_CONTRACTS_API VEXString {
public:
    VEXString() = default;

    /// A null `iText` counts as the empty text.
    VEXString(const char* iText);

    /// The text, terminated. Valid as long as the string lives and isn't assigned to.
    char* CastToCharPtr() const { return const_cast<char*>(_text.c_str()); }

private:
    std::basic_string<char, std::char_traits<char>, VEXAllocator<char>> _text;
};

#endif
