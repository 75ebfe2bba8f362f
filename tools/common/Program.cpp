#include "Program.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <sstream>

namespace {

constexpr std::size_t kHelpWidth = 80;
constexpr std::size_t kHelpColumn = 24;  // where the texts of options begin

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

}  // namespace

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
    Add({"help", "", "Prints the options and the exit codes."}).letter = 'h';
    Add({"version", "", "Prints the version."}).letter = 'V';
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

std::optional<int> WholeNumberOf(const std::string& iText) {
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(iText.c_str(), &end, 10);
    if (errno != 0 || iText.empty() || *end != '\0') return {};
    if (number != static_cast<int>(number)) return {};
    return static_cast<int>(number);
}

Option Flag(const Option& iOption, bool& oIsGiven) {
    Option option = iOption;
    option.store = [&oIsGiven](const std::string&) { return oIsGiven = true; };
    return option;
}

Option Text(const Option& iOption, std::string& oText) {
    Option option = iOption;
    option.wanted = "a text";
    option.store = [&oText](const std::string& text) {
        oText = text;
        return !text.empty();
    };
    return option;
}

Option Length(const Option& iOption, float& oLength) {
    const auto store = [&oLength](const float* number) {
        oLength = *number;
        return oLength > 0.0F;
    };
    Option option = Numbers(iOption, 1, store);
    option.wanted = "a length above 0";
    return option;
}

Option Numbers(
    const Option& iOption, std::size_t iCount, const std::function<bool(const float*)>& iStore) {
    Option option = iOption;
    option.wanted = std::to_string(iCount) + " numbers with commas between them";
    option.store = [iCount, iStore](const std::string& text) {
        const std::vector<float> numbers = NumbersOf(text);
        return numbers.size() == iCount && iStore(numbers.data());
    };
    return option;
}
