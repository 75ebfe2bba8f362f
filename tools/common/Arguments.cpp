#include "Arguments.h"

#include "IDX_Status.h"
#include "PLMIdxParameters.h"

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace {

constexpr char kNumberStarts[] = "0123456789.";

/// A number below zero, as against an option.
bool IsNegativeNumber(const char* iText) {
    return iText[0] == '-' && iText[1] != '\0' && std::strchr(kNumberStarts, iText[1]) != nullptr;
}

/// The reader takes no value that begins with a dash: such a value is handed over with a blank before it. So is
/// one that begins with a blank, which makes the blank a sure sign.
std::string Wrapped(const std::string& iValue) {
    const bool needsBlank = !iValue.empty() && (iValue[0] == '-' || iValue[0] == ' ');
    return needsBlank ? std::string(" ").append(iValue) : iValue;
}

std::string Unwrapped(const char* iValue) {
    return iValue[0] == ' ' ? iValue + 1 : iValue;
}

/// The value of an option as it was typed; nothing when it wasn't given.
std::optional<std::string> ValueOf(const char* iName) {
    const char* value = PLMIdxParameters::Get(iName);
    if (value == nullptr) return {};
    return Unwrapped(value);
}

/// A number of which nothing is left over, at the end or at a comma.
bool ReadFloat(const char*& ioText, float& oNumber) {
    char* end = nullptr;
    oNumber = std::strtof(ioText, &end);
    const bool isWhole = end != ioText && (*end == '\0' || *end == ',');
    ioText = end;
    return isWhole && std::isfinite(oNumber);
}

bool ReadWholeNumber(const std::string& iText, int iLowest, int iHighest, int& oNumber) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(iText.c_str(), &end, 10);
    if (errno != 0 || iText.empty() || *end != '\0') return false;
    if (number < iLowest || number > iHighest) return false;
    oNumber = static_cast<int>(number);
    return true;
}

bool ReadFloats(const std::string& iText, std::size_t iCount, std::vector<float>& oNumbers) {
    std::vector<float> numbers(iCount);
    const char* text = iText.c_str();
    for (std::size_t i = 0; i < iCount; ++i) {
        if (i > 0 && *text++ != ',') return false;
        if (!ReadFloat(text, numbers[i])) return false;
    }
    if (*text != '\0') return false;
    oNumbers = std::move(numbers);
    return true;
}

bool AsksForHelp(const std::string& iName) {
    return iName == "help" || iName == "h" || iName == "?";
}

}  // namespace

/// An option as it was typed: its name without dashes, and what stands behind a '='.
struct Arguments::Split {
    explicit Split(const std::string& iArgument) {
        const std::size_t start = iArgument.starts_with("--") ? 2 : 1;
        const std::size_t equals = iArgument.find('=');
        name = iArgument.substr(start, equals == std::string::npos ? equals : equals - start);
        if (equals != std::string::npos) value = iArgument.substr(equals + 1);
    }

    std::string name;
    std::optional<std::string> value;
};

Arguments::Arguments(const char* iTool, const char* iAbout) : _tool(iTool), _about(iAbout) {}

void Arguments::DeclareValue(const char* iName, bool iMandatory, const char* iUsage) {
    (void)_reader.DeclareParameter(iName, iMandatory, false, iUsage);
    _takesValue[iName] = true;
}

void Arguments::DeclareFlag(const char* iName, const char* iUsage) {
    (void)_reader.DeclareParameter(iName, false, true, iUsage);
    _takesValue[iName] = false;
}

Arguments::Result Arguments::Read(int iCount, char** iArguments) {
    DeclareFlag("version", "Print the version");
    _forReader = {iArguments[0]};
    bool isOptionsEnd = false;
    for (int next = 1; next < iCount;) {
        const std::string argument = iArguments[next++];
        if (!isOptionsEnd && argument == "--") {
            isOptionsEnd = true;
        } else if (isOptionsEnd || argument.empty() || argument[0] != '-') {
            _words.push_back(argument);
        } else if (ReadOption(Split(argument), iCount, iArguments, next) == Result::Done) {
            return Result::Done;
        }
    }
    std::vector<char*> arguments;
    for (std::string& argument : _forReader) arguments.push_back(argument.data());
    const long int status = _reader.Read(static_cast<int>(arguments.size()), arguments.data());
    return IDX_Failed(status) ? Result::Wrong : Result::Run;
}

/// Adds one option and its value to what the reader gets.
Arguments::Result Arguments::ReadOption(
    const Split& iOption, int iCount, char** iArguments, int& ioNext) {
    if (AsksForHelp(iOption.name)) {
        PrintHelp();
        return Result::Done;
    }
    if (iOption.name == "version") {
        std::printf("%s %s\n", _tool.c_str(), GRIDLOOM_VERSION);
        return Result::Done;
    }
    _forReader.push_back(std::string("-").append(iOption.name));
    if (iOption.value) {
        _forReader.push_back(Wrapped(*iOption.value));
    } else if (TakesValue(iOption.name) && ioNext < iCount) {
        const char* value = iArguments[ioNext];
        if (value[0] == '-' && !IsNegativeNumber(value)) return Result::Run;  // it is missing
        _forReader.push_back(Wrapped(value));
        ++ioNext;
    }
    return Result::Run;
}

bool Arguments::TakesValue(const std::string& iName) const {
    const auto found = _takesValue.find(iName);
    return found != _takesValue.end() && found->second;
}

bool Arguments::IsGiven(const char* iName) {
    return PLMIdxParameters::Get(iName) != nullptr;
}

void Arguments::GetText(const char* iName, std::string& oText) {
    const std::optional<std::string> value = ValueOf(iName);
    if (!value) return;
    if (value->empty()) return Refuse(iName, "a text", *value);
    oText = *value;
}

void Arguments::GetNumber(const char* iName, int iLowest, int iHighest, int& oNumber) {
    const std::optional<std::string> value = ValueOf(iName);
    if (!value || ReadWholeNumber(*value, iLowest, iHighest, oNumber)) return;
    Refuse(
        iName, "a whole number from " + std::to_string(iLowest) + " to " + std::to_string(iHighest),
        *value);
}

void Arguments::GetNumber(const char* iName, int iLowest, int iHighest, unsigned int& oNumber) {
    int number = static_cast<int>(oNumber);
    GetNumber(iName, iLowest, iHighest, number);
    oNumber = static_cast<unsigned int>(number);
}

void Arguments::GetLength(const char* iName, float& oLength) {
    const std::optional<std::string> value = ValueOf(iName);
    if (!value) return;
    std::vector<float> numbers;
    if (!ReadFloats(*value, 1, numbers) || numbers[0] <= 0.0f) {
        return Refuse(iName, "a length above 0", *value);
    }
    oLength = numbers[0];
}

void Arguments::GetNumbers(const char* iName, std::size_t iCount, std::vector<float>& oNumbers) {
    const std::optional<std::string> value = ValueOf(iName);
    if (!value || ReadFloats(*value, iCount, oNumbers)) return;
    Refuse(iName, std::to_string(iCount) + " numbers with commas between them", *value);
}

void Arguments::GetChoice(
    const char* iName, std::initializer_list<const char*> iWords, std::size_t& oChoice) {
    const std::optional<std::string> value = ValueOf(iName);
    if (!value) return;
    std::string wish = "one of";
    std::size_t place = 0;
    for (const char* word : iWords) {
        if (*value == word) {
            oChoice = place;
            return;
        }
        wish.append(place++ == 0 ? " " : ", ").append(word);
    }
    Refuse(iName, wish, *value);
}

void Arguments::Complain(const std::string& iReason) {
    std::fprintf(
        stderr, "%s: %s\nTry '%s --help'.\n", _tool.c_str(), iReason.c_str(), _tool.c_str());
    _isWrong = true;
}

void Arguments::Refuse(const char* iName, const std::string& iWish, const std::string& iValue) {
    Complain(std::string("-") + iName + " wants " + iWish + ", not '" + iValue + "'");
}

void Arguments::PrintHelp() {
    std::fputs(_about.c_str(), stdout);
    _reader.Usage();
}
