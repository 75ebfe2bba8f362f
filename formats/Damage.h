#ifndef Damage_h
#define Damage_h

#include <string>
#include <utility>

/// What is wrong with stored bytes, as a check of them found it.
class Damage {
public:
    /// Nothing is wrong.
    Damage() = default;

    /// @param iText  what is wrong and where, without the name of the file; not empty
    explicit Damage(std::string iText) : _text(std::move(iText)) {}

    /// What is wrong at an offset of the file.
    static Damage At(unsigned long long iOffset, const char* iText) {
        return Damage("at " + std::to_string(iOffset) + ": " + iText);
    }

    /// True when something is wrong.
    explicit operator bool() const { return !_text.empty(); }

    const std::string& Text() const { return _text; }

private:
    std::string _text;
};

#endif
