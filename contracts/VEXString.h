#ifndef VEXString_h
#define VEXString_h

#include "GridloomContractsExport.h"
#include "VEXAllocator.h"

#include <string>

/// A text of bytes. A copy has its own content. No operation fails.
class GRIDLOOM_CONTRACTS_API VEXString {
public:
    VEXString() = default;

    /// A null `iText` counts as the empty text.
    VEXString(const char* iText);

    /// The text, terminated. Valid until the string is assigned to or destroyed.
    char* CastToCharPtr() const { return const_cast<char*>(_text.c_str()); }

private:
    std::basic_string<char, std::char_traits<char>, VEXAllocator<char>> _text;
};

#endif
