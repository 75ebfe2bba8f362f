#include "Program.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <sstream>

namespace {

constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kHelpColumn = 24;  // where the texts of options begin

std::optional<int> WholeNumberOf(const std::string& iText) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(iText.c_str(), &end, 10);
    if (errno != 0 || iText.empty() || *end != '\0') return {};
    if (number != static_cast<int>(number)) return {};
    return static_cast<int>(number);
}

/// Finite numbers with commas between them; empty when the text isn't that.
std::vector<float> NumbersOf(const std::string& iText) {
    std::vector<float> numbers;
    for (const char* text = iText.c_str();; ++text) {
        char* end = nullptr;
        numbers.push_back(std::strtof(text, &end));
        if (end == text || !std::isfinite(numbers.back())) return {};
        if (*end == '\0') return numbers;
        if (*end != ',') return {};
        text = end;
    }
}

/// Appends words, broken into lines that begin at a column. The text ends with a line break.
void AppendWrapped(const std::string& iText, std::size_t iColumn, std::string& ioText) {
    std::istringstream words(iText);
    std::size_t used = ioText.size() - (ioText.rfind('\n') + 1);
    ioText.append(iColumn - std::min(used, iColumn), ' ');
    used = iColumn;
    for (std::string word; words >> word;) {
        std::erase(word, '`');
        if (used > iColumn && used + 1 + word.size() > kHelpWidth) {
            ioText.append("\n").append(iColumn, ' ');
            used = iColumn;
        }
        if (used > iColumn) ioText += ' ';
        ioText += word;
        used += 1 + word.size();
    }
    ioText += '\n';
}

template <class Integer>
Option WholeNumberIn(
    const char* iName,
    const char* iPlaceholder,
    int iLowest,
    int iHighest,
    Integer& oNumber,
    const char* iHelp) {
    const auto store = [=, &oNumber](const std::string& value) {
        const std::optional<int> number = WholeNumberOf(value);
        if (!number || *number < iLowest || *number > iHighest) return false;
        oNumber = static_cast<Integer>(*number);
        return true;
    };
    const std::string range = std::to_string(iLowest) + " to " + std::to_string(iHighest);
    const std::string wanted = "a whole number from " + range;
    return {iName, iPlaceholder, iHelp, store, wanted, range, std::to_string(oNumber)};
}

}  // namespace

Option Option::Mandatory() const {
    Option option = *this;
    option.isMandatory = true;
    return option;
}

Option Option::Short(char iLetter) const {
    Option option = *this;
    option.letter = iLetter;
    return option;
}

Option Option::Completed(Completion iCompletion) const {
    Option option = *this;
    option.completion = iCompletion;
    return option;
}

Option Option::Default(const std::string& iDefault) const {
    Option option = *this;
    option.standard = iDefault;
    return option;
}

std::string Option::Usage() const {
    std::string usage;
    if (letter != '\0') usage.append({'-', letter, ',', ' '});
    usage.append("-").append(name);
    return TakesValue() ? usage + " " + placeholder : usage;
}

std::string Option::Text() const {
    std::string text = help;
    if (!range.empty()) text += " Range: " + range + ".";
    if (!standard.empty()) text += " Default: " + standard + ".";
    return text;
}

void Program::AddCommonOptions() {
    Add(Option{"help", "", "Prints the options and the exit codes."}.Short('h'));
    Add(Option{"version", "", "Prints the version."}.Short('V'));
}

const Option* Program::Find(const std::string& iName) const {
    const Option* found = nullptr;
    ForEach([&](const Option& option) {
        if (option.name == iName) found = &option;
    });
    return found;
}

std::string Program::Help() const {
    std::string help = "usage: " + name + " " + arguments + "\n\n";
    AppendWrapped(about, 0, help);
    for (const OptionGroup& group : groups) {
        help += "\n" + group.title + ":\n";
        for (const Option& option : group.options) {
            const std::string usage = "  " + option.Usage();
            help += usage;
            if (usage.size() + 2 > kHelpColumn) help += '\n';
            AppendWrapped(option.Text(), kHelpColumn, help);
        }
    }
    help += '\n';
    AppendWrapped(kForms, 0, help);
    help += "\nExit codes:\n";
    for (const ExitMeaning& exit : exits) {
        help += "  " + std::to_string(NumberOf(exit.code));
        AppendWrapped(exit.meaning, 8, help);
    }
    return help;
}

Option Flag(const char* iName, bool& oIsGiven, const char* iHelp) {
    const auto store = [&oIsGiven](const std::string&) { return oIsGiven = true; };
    return {iName, "", iHelp, store};
}

Option Text(const char* iName, const char* iPlaceholder, std::string& oText, const char* iHelp) {
    const auto store = [&oText](const std::string& value) {
        oText = value;
        return !value.empty();
    };
    return {iName, iPlaceholder, iHelp, store, "a text"};
}

Option WholeNumber(
    const char* iName,
    const char* iPlaceholder,
    int iLowest,
    int iHighest,
    int& oNumber,
    const char* iHelp) {
    return WholeNumberIn(iName, iPlaceholder, iLowest, iHighest, oNumber, iHelp);
}

Option WholeNumber(
    const char* iName,
    const char* iPlaceholder,
    int iLowest,
    int iHighest,
    unsigned int& oNumber,
    const char* iHelp) {
    return WholeNumberIn(iName, iPlaceholder, iLowest, iHighest, oNumber, iHelp);
}

Option Length(const char* iName, const char* iPlaceholder, float& oLength, const char* iHelp) {
    const auto store = [&oLength](const std::string& value) {
        const std::vector<float> numbers = NumbersOf(value);
        if (numbers.size() != 1 || numbers[0] <= 0.0F) return false;
        oLength = numbers[0];
        return true;
    };
    return {iName, iPlaceholder, iHelp, store, "a length above 0"};
}

Option Numbers(
    const char* iName,
    const char* iPlaceholder,
    std::size_t iCount,
    const std::function<bool(const float*)>& iStore,
    const char* iHelp) {
    const auto store = [=](const std::string& value) {
        const std::vector<float> numbers = NumbersOf(value);
        return numbers.size() == iCount && iStore(numbers.data());
    };
    const std::string wanted = std::to_string(iCount) + " numbers with commas between them";
    return {iName, iPlaceholder, iHelp, store, wanted};
}
