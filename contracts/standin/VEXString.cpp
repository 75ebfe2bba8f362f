#include "VEXString.h"

VEXString::VEXString(const char* iText) : _text(iText != nullptr ? iText : "") {}
