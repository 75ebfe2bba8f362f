#ifndef ByteTexts_h
#define ByteTexts_h

#include "IDX_Base_ByteArray.h"
#include "IDX_Base_String.h"

#include <string>

// Bytes of the contracts' types as texts, for short cases and readable failures.

inline const unsigned char* BytesOf(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

inline IDX_Base_ByteArray ArrayOf(const std::string& text) {
    IDX_Base_ByteArray array;
    array.SetData(BytesOf(text), static_cast<unsigned int>(text.size()));
    return array;
}

inline IDX_Base_String StringOf(const std::string& text) {
    IDX_Base_String string;
    string.SetData(text.data(), static_cast<unsigned int>(text.size()));
    return string;
}

inline std::string TextOf(const IDX_Base_ByteArray& array) {
    return {reinterpret_cast<const char*>(array.GetData()), array.GetSize()};
}

inline std::string TextOf(const IDX_Base_String& string) {
    return {string.GetData(), string.GetLength()};
}

#endif
