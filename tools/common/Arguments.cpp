#include "Arguments.h"

#include "Console.h"
#include "StandardOutput.h"

#include "IDX_Status.h"
#include "PLMIdxParameters.h"
#include "PLMIdxParametersReader.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <numeric>

namespace {

bool IsDigit(char iCharacter) {
    return std::isdigit(static_cast<unsigned char>(iCharacter)) != 0;
}

/// An option, as against a word, or a value such as a number below zero.
bool IsOption(const std::string& iArgument) {
    return iArgument.size() > 1 && iArgument[0] == '-' && !IsDigit(iArgument[1]) &&
           iArgument[1] != '.';
}

/// The reader takes no value that begins with a dash: it gets such a value with a blank in front.
/// One that begins with a blank gets another blank, so that a blank in front always goes.
std::string Wrapped(const std::string& iValue) {
    const bool needsBlank = iValue.starts_with('-') || iValue.starts_with(' ');
    return needsBlank ? " " + iValue : iValue;
}

std::string Unwrapped(const char* iValue) {
    return iValue[0] == ' ' ? iValue + 1 : iValue;
}

/// How many characters have to be typed, left out, replaced or swapped with the next to make one
/// text from another: F. J. Damerau, "A technique for computer detection and correction of spelling
/// errors", CACM 7(3), 1964; the table: R. A. Wagner, M. J. Fischer, "The string-to-string
/// correction problem", JACM 21(1), 1974.
std::size_t TypingErrors(const std::string& iFirst, const std::string& iSecond) {
    std::vector<std::size_t> beforeLast;
    std::vector<std::size_t> last(iSecond.size() + 1);
    std::iota(last.begin(), last.end(), std::size_t{0});
    for (std::size_t i = 1; i <= iFirst.size(); ++i) {
        std::vector<std::size_t> row = {i};
        for (std::size_t j = 1; j <= iSecond.size(); ++j) {
            const std::size_t replaced = last[j - 1] + (iFirst[i - 1] == iSecond[j - 1] ? 0 : 1);
            row.push_back(std::min({replaced, last[j] + 1, row[j - 1] + 1}));
            const bool isSwapped = i > 1 && j > 1 && iFirst[i - 1] == iSecond[j - 2] &&
                                   iFirst[i - 2] == iSecond[j - 1];
            if (isSwapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        beforeLast = std::exchange(last, std::move(row));
    }
    return last.back();
}

}  // namespace

/// An option as it was typed: its name without dashes, and the value after a '='.
struct Arguments::Typed {
    explicit Typed(const std::string& iArgument) {
        const std::size_t start = iArgument.starts_with("--") ? 2 : 1;
        const std::size_t equals = iArgument.find('=');
        name = iArgument.substr(start, equals == std::string::npos ? equals : equals - start);
        if (equals != std::string::npos) value = iArgument.substr(equals + 1);
    }

    std::string name;
    std::optional<std::string> value;
};

std::optional<ExitCode> Arguments::Read(int iCount, char** iArguments) {
    _forReader = {_program.name};
    Scan({iArguments + 1, iArguments + iCount});
    if (_asksForHelp || _asksForVersion) {
        const std::string version = _program.name + " " + GRIDLOOM_VERSION + "\n";
        std::fputs(_asksForHelp ? _program.Help().c_str() : version.c_str(), stdout);
        return ExitCode::Done;
    }
    CheckMandatory();
    if (_wrong.empty() && !ReadByLibrary()) SetWrong("the command line can't be read");
    if (_wrong.empty()) StoreValues();
    if (!_wrong.empty()) return Refuse(_wrong);
    return {};
}

void Arguments::Scan(const std::vector<std::string>& iArguments) {
    bool areWords = false;
    for (std::size_t next = 0; next < iArguments.size();) {
        const std::string& argument = iArguments[next++];
        const std::string* value = next < iArguments.size() ? &iArguments[next] : nullptr;
        if (!areWords && argument == "--") {
            areWords = true;
        } else if (areWords || argument.size() < 2 || argument[0] != '-') {
            _words.push_back(argument);
        } else if (ScanOption(Typed(argument), value)) {
            ++next;
        }
    }
}

/// Adds one option and its value to what the reader gets.
/// @param iNext  the argument after it, or null
/// @return whether that is its value
bool Arguments::ScanOption(const Typed& iTyped, const std::string* iNext) {
    Typed typed = iTyped;
    const Option* option = FindOption(typed);
    if (option == nullptr) {
        SetWrong("-" + typed.name + " is unknown" + Nearest(typed.name));
        return false;
    }
    const std::string name = "-" + option->name;
    const bool takesValue = option->TakesValue();
    const bool takesNext = takesValue && !typed.value && iNext != nullptr && !IsOption(*iNext);
    _asksForHelp |= option->name == "help";
    _asksForVersion |= option->name == "version";
    if (std::find(_forReader.begin(), _forReader.end(), name) != _forReader.end()) {
        SetWrong(name + " is given twice");
    } else if (!takesValue && typed.value) {
        SetWrong(name + " takes no value");
    } else if (takesValue && !takesNext && !typed.value) {
        SetWrong(name + " wants a value: " + option->placeholder);
    }
    _forReader.push_back(name);
    if (takesNext) typed.value = *iNext;
    if (typed.value) _forReader.push_back(Wrapped(*typed.value));
    return takesNext;
}

/// The option of that name or letter. A number right after the letter is its value: `-j4`.
const Option* Arguments::FindOption(Typed& ioTyped) const {
    const std::string& name = ioTyped.name;
    if (name == "?") return _program.Find("help");
    const Option* found = _program.Find(name);
    if (found != nullptr || name.empty()) return found;
    _program.ForEach([&](const Option& option) {
        if (option.letter == name[0]) found = &option;
    });
    if (found == nullptr || name.size() == 1) return found;
    if (!found->TakesValue() || ioTyped.value || !IsDigit(name[1])) return nullptr;
    ioTyped.value = name.substr(1);
    return found;
}

void Arguments::SetWrong(const std::string& iReason) {
    if (_wrong.empty()) _wrong = iReason;
}

/// A question after the option that was meant, as far as it can be guessed: one that begins as it
/// was typed, or the one with the fewest typing errors, one in three characters at most.
std::string Arguments::Nearest(const std::string& iName) const {
    const Option* nearest = nullptr;
    std::size_t fewest = std::max<std::size_t>(1, iName.size() / 3) + 1;
    _program.ForEach([&](const Option& option) {
        const bool isBeginning = iName.size() > 1 && option.name.starts_with(iName);
        const std::size_t errors = isBeginning ? 0 : TypingErrors(iName, option.name);
        if (errors >= fewest) return;
        fewest = errors;
        nearest = &option;
    });
    return nearest == nullptr ? "" : "; did you mean -" + nearest->name + "?";
}

void Arguments::CheckMandatory() {
    _program.ForEach([&](const Option& option) {
        const std::string name = "-" + option.name;
        const bool isGiven =
            std::find(_forReader.begin(), _forReader.end(), name) != _forReader.end();
        if (option.isMandatory && !isGiven) {
            SetWrong(name + " " + option.placeholder + " is mandatory");
        }
    });
}

/// The library keeps the values. What it prints meanwhile is no answer of the tool.
bool Arguments::ReadByLibrary() {
    PLMIdxParametersReader reader;
    _program.ForEach([&](const Option& option) {
        (void)reader.DeclareParameter(
            option.name.c_str(), option.isMandatory, !option.TakesValue(), option.help.c_str());
    });
    std::vector<char*> arguments;
    for (std::string& argument : _forReader) arguments.push_back(argument.data());
    const StandardOutputSilence silence;
    return !IDX_Failed(reader.Read(static_cast<int>(arguments.size()), arguments.data()));
}

void Arguments::StoreValues() {
    _program.ForEach([&](const Option& option) {
        const char* stored = PLMIdxParameters::Get(option.name.c_str());
        if (stored == nullptr) return;
        const std::string value = Unwrapped(stored);
        if (option.store(value)) return;
        SetWrong("-" + option.name + " wants " + option.wanted + ", not '" + value + "'");
    });
}

bool Arguments::IsGiven(const std::string& iName) {
    return PLMIdxParameters::Get(iName.c_str()) != nullptr;
}

ExitCode Arguments::Refuse(const std::string& iReason) const {
    const char* name = _program.name.c_str();
    std::fprintf(stderr, "%s: %s\nTry '%s -help'.\n", name, Printable(iReason).c_str(), name);
    return ExitCode::Usage;
}
