#ifndef Program_h
#define Program_h

#include "ExitCodes.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What a tool is to its operator: its name, its options and its exit codes. This is data, written
// once for each tool. The command line is read by it, and the help text, the man page, the
// completion of the shell and the tables of docs/tools.md are made of it.
//
// In its texts `...` encloses what is typed as it is.

/// One option, bound to the variable that gets its value. The variable must outlive the option.
struct Option {
    /// What a shell can offer for a value.
    enum class Completion { None, Files, Folders };

    std::string name;              ///< without its dash
    std::string placeholder = {};  ///< what help writes for the value; empty: takes none
    std::string help = {};         ///< sentences
    std::function<bool(const std::string&)> store = {};  ///< keeps a value; false: it doesn't fit
    std::string wanted = {};                             ///< which values fit, for a message
    std::string range = {};                              ///< of a number, "2 to 19"; or empty
    std::string standard = {};                           ///< value when it isn't given; or empty
    bool isChoice = false;  ///< the placeholder is all values, with '|' between them
    bool isMandatory = false;
    Completion completion = Completion::None;
    char letter = '\0';  ///< a short form, `-j4` or `-j 4`; 0: none

    bool TakesValue() const { return !placeholder.empty(); }

    /// "-j, -jobs N".
    std::string Usage() const;

    /// The whole text of help: what it means, range and default.
    std::string Text() const;
};

/// Options under one heading.
struct OptionGroup {
    std::string title;
    std::vector<Option> options;
};

/// When a tool ends with an exit code.
struct ExitMeaning {
    ExitCode code;
    std::string meaning;
};

struct Program {
    /// How each tool takes its options.
    static constexpr const char* kForms =
        "`-name value`, `--name value` and `-name=value` are the same. `--` ends the options.";

    std::string name;
    std::string arguments;    ///< the command line after the name
    std::string about;        ///< what it does, in sentences
    bool takesFiles = false;  ///< words that are no options name files
    std::vector<OptionGroup> groups;
    std::vector<ExitMeaning> exits;

    void AddGroup(const char* iTitle) { groups.push_back({iTitle, {}}); }

    /// Adds an option to the last group.
    /// @return it, until the next one is added
    Option& Add(const Option& iOption) { return groups.back().options.emplace_back(iOption); }

    void AddExit(ExitCode iCode, const char* iMeaning) { exits.push_back({iCode, iMeaning}); }

    /// Help and version, to the last group. Arguments acts on them.
    void AddCommonOptions();

    /// Calls a function with each option.
    template <class Visit>
    void ForEach(const Visit& iVisit) const {
        for (const OptionGroup& group : groups) {
            for (const Option& option : group.options) iVisit(option);
        }
    }

    /// The option of that name, or null.
    const Option* Find(const std::string& iName) const;

    /// The text of `-help`, for 80 columns.
    std::string Help() const;
};

// Each of these gives the same option bound to a variable, by the kind of its value. What the
// variable holds is the default of a number and of a choice.

/// Without a value.
Option Flag(const Option& iOption, bool& oIsGiven);

/// A text that isn't empty.
Option Text(const Option& iOption, std::string& oText);

/// A finite number above 0.
Option Length(const Option& iOption, float& oLength);

/// Finite numbers with commas between them.
/// @param iStore  gets iCount numbers; gives false when they don't fit together
Option Numbers(
    const Option& iOption, std::size_t iCount, const std::function<bool(const float*)>& iStore);

/// The number that a whole text is, if it is one.
std::optional<int> WholeNumberOf(const std::string& iText);

/// @param iLowest  not below 0 for a variable that can't be
template <class Integer>
Option WholeNumber(const Option& iOption, int iLowest, int iHighest, Integer& oNumber) {
    Option option = iOption;
    option.range = std::to_string(iLowest) + " to " + std::to_string(iHighest);
    option.wanted = "a whole number from " + option.range;
    option.standard = std::to_string(oNumber);
    option.store = [iLowest, iHighest, &oNumber](const std::string& text) {
        const std::optional<int> number = WholeNumberOf(text);
        if (!number || *number < iLowest || *number > iHighest) return false;
        oNumber = static_cast<Integer>(*number);
        return true;
    };
    return option;
}

/// One of some words.
/// @param iValues  each word and what it means
template <class Value>
Option Choice(
    const Option& iOption,
    const std::vector<std::pair<std::string, Value>>& iValues,
    Value& oValue) {
    Option option = iOption;
    option.isChoice = true;
    option.wanted = "one of";
    for (const auto& [word, value] : iValues) {
        option.wanted += (option.placeholder.empty() ? " " : ", ") + word;
        option.placeholder += (option.placeholder.empty() ? "" : "|") + word;
        if (value == oValue) option.standard = "`" + word + "`";
    }
    option.store = [iValues, &oValue](const std::string& text) {
        for (const auto& [word, value] : iValues) {
            if (word != text) continue;
            oValue = value;
            return true;
        }
        return false;
    };
    return option;
}

#endif
