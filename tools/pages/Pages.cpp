#include "Pages.h"

#include <map>
#include <regex>

namespace {

std::string Replaced(std::string iText, char iCharacter, const std::string& iBy) {
    for (std::size_t at = 0; (at = iText.find(iCharacter, at)) != std::string::npos;) {
        iText.replace(at, 1, iBy);
        at += iBy.size();
    }
    return iText;
}

/// A text of help in the language of man pages: what `...` encloses becomes bold.
std::string ManTextOf(const std::string& iText) {
    std::string text;
    bool isBold = false;
    for (const char character : iText) {
        if (character == '`') {
            isBold = !isBold;
            text += isBold ? "\\fB" : "\\fP";
        } else if (character == '-' && isBold) {
            text += "\\-";  // a plain one may become a longer dash
        } else {
            text += character;
        }
    }
    return text + "\n";
}

/// A piece of a command line in the language of man pages: names of options become bold, what
/// stands for something else becomes italic.
std::string ManUsageOf(const std::string& iUsage) {
    static const std::regex kOptionName("(^|[ \\[])(-[A-Za-z-]+)");
    static const std::regex kPlaceholder("[A-Z_]{3,}");
    const std::string named = std::regex_replace(iUsage, kOptionName, "$1\\fB$2\\fP");
    return Replaced(std::regex_replace(named, kPlaceholder, "\\fI$&\\fP"), '-', "\\-") + "\n";
}

std::string ManOptionOf(const Option& iOption) {
    const std::string names = iOption.Usage();
    std::string left = "\\fB" + names.substr(0, names.size() - iOption.placeholder.size()) + "\\fP";
    if (!iOption.placeholder.empty()) left += "\\fI" + iOption.placeholder + "\\fP";
    return ".TP\n" + Replaced(left, '-', "\\-") + "\n" + ManTextOf(iOption.Text());
}

/// The command of bash that offers what `compgen` gives.
std::string Offer(const std::string& iArguments, const std::string& iBeginning) {
    return "mapfile -t COMPREPLY < <(compgen " + iArguments + " -- " + iBeginning + ")";
}

/// What is offered for the value of an option; empty: nothing.
std::string OfferOf(const Option& iOption) {
    constexpr const char* kCurrent = "\"$current\"";
    if (iOption.completion == Option::Completion::Folders) return Offer("-d", kCurrent);
    if (iOption.completion == Option::Completion::Files) return Offer("-f", kCurrent);
    if (!iOption.isChoice) return {};
    return Offer("-W '" + Replaced(iOption.placeholder, '|', " ") + "'", kCurrent);
}

}  // namespace

std::string MarkdownOf(const Program& iProgram) {
    std::string text = "```\n" + iProgram.name + " " + iProgram.arguments + "\n```\n";
    for (const OptionGroup& group : iProgram.groups) {
        text += "\n| " + group.title + " | Meaning |\n|---|---|\n";
        for (const Option& option : group.options) {
            const std::string names = Replaced(option.Usage(), '|', "\\|");
            text += "| `" + names + "` | " + Replaced(option.Text(), '|', "\\|") + " |\n";
        }
    }
    text += "\n" + std::string(Program::kForms) + "\n\n| Exit code | Meaning |\n|---:|---|\n";
    for (const ExitMeaning& exit : iProgram.exits) {
        text += "| " + std::to_string(NumberOf(exit.code)) + " | " + exit.meaning + " |\n";
    }
    return text;
}

std::string ManSynopsisOf(const Program& iProgram) {
    return ".SH SYNOPSIS\n.B " + iProgram.name + "\n" + ManUsageOf(iProgram.arguments);
}

std::string ManOptionsOf(const Program& iProgram) {
    std::string text = ".SH OPTIONS\n" + ManTextOf(Program::kForms);
    for (const OptionGroup& group : iProgram.groups) {
        if (iProgram.groups.size() > 1) text += ".SS " + group.title + "\n";
        for (const Option& option : group.options) text += ManOptionOf(option);
    }
    text += ".SH EXIT STATUS\n";
    for (const ExitMeaning& exit : iProgram.exits) {
        text += ".TP\n.B " + std::to_string(NumberOf(exit.code)) + "\n" + ManTextOf(exit.meaning);
    }
    return text;
}

std::string CompletionOf(const Program& iProgram) {
    const std::string function = "_" + Replaced(iProgram.name, '-', "_");
    std::string names;
    std::map<std::string, std::string>
        patterns;  // of the options, by what is offered for the value
    iProgram.ForEach([&](const Option& option) {
        names += (names.empty() ? "" : " ") + option.name;
        if (option.placeholder.empty()) return;
        std::string& pattern = patterns[OfferOf(option)];
        pattern += (pattern.empty() ? "-" : " | -") + option.name;
        if (option.letter != '\0') pattern.append({' ', '|', ' ', '-', option.letter});
    });
    std::string cases;
    for (const auto& [offer, pattern] : patterns) {
        cases += "        " + pattern + ") " + (offer.empty() ? "" : offer + " ") + ";;\n";
    }
    std::string others =
        Offer("-P \"${dashes:--}\" -W '" + names + "'", "\"${current#\"$dashes\"}\"");
    if (iProgram.takesFiles) {
        others = "if [[ -n $dashes ]]; then\n                " + others +
                 "\n            else\n                " + Offer("-f", "\"$current\"") +
                 "\n            fi";
    }
    return function +
           R"(() {
    local current=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]}
    if [[ $option == '=' ]]; then option=${COMP_WORDS[COMP_CWORD - 2]}; fi
    if [[ $current == '=' ]]; then current=; fi
    local dashes=${current%%[!-]*}
    case ${option/#--/-} in
)" + cases +
           "        *)\n            " + others + R"( ;;
    esac
}
complete -o filenames -F )" +
           function + " " + iProgram.name + "\n";
}
