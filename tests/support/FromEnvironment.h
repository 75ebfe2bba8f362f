#ifndef FromEnvironment_h
#define FromEnvironment_h

#include <cstdlib>

/// The number in an environment variable, or another one when it isn't set.
inline unsigned long FromEnvironment(const char* name, unsigned long otherwise) {
    const char* text = std::getenv(name);
    return text == nullptr ? otherwise : std::strtoul(text, nullptr, 10);
}

#endif
