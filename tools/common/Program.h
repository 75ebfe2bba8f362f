#ifndef Program_h
#define Program_h

#include "ExitCodes.h"

#include <cstddef>
#include <functional>
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

    std::string name;         ///< without its dash
    std::string placeholder;  ///< what help writes for the value; empty: the option takes none
    std::string help;         ///< sentences
    std::function<bool(const std::string&)> store = {};  ///< keeps a value; false: it doesn't fit
    std::string wanted = {};                             ///< which values fit, for a message
    std::string range = {};                              ///< of a number, "2 to 19"; or empty
    std::string standard = {};                           ///< value when it isn't given; or empty
    bool isChoice = false;  ///< the placeholder is all values, with '|' between them
    bool isMandatory = false;
    Completion completion = Completion::None;
    char letter = '\0';  ///< a short form, `-j4` or `-j 4`; 0: none

    // The same option with one thing changed.

    Option Mandatory() const;
    Option Short(char iLetter) const;
    Option Completed(Completion iCompletion) const;
    Option Default(const std::string& iDefault) const;

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
    void Add(const Option& iOption) { groups.back().options.push_back(iOption); }  ///< to the last
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

// Options by the kind of their value. What the variable holds is the default that help shows,
// unless it is empty or 0.

/// Without a value.
Option Flag(const char* iName, bool& oIsGiven, const char* iHelp);

/// A text that isn't empty.
Option Text(const char* iName, const char* iPlaceholder, std::string& oText, const char* iHelp);

Option WholeNumber(
    const char* iName,
    const char* iPlaceholder,
    int iLowest,
    int iHighest,
    int& oNumber,
    const char* iHelp);

/// @param iLowest  not below 0
Option WholeNumber(
    const char* iName,
    const char* iPlaceholder,
    int iLowest,
    int iHighest,
    unsigned int& oNumber,
    const char* iHelp);

/// A finite number above 0.
Option Length(const char* iName, const char* iPlaceholder, float& oLength, const char* iHelp);

/// Finite numbers with commas between them.
/// @param iStore  gets iCount numbers; gives false when they don't fit together
Option Numbers(
    const char* iName,
    const char* iPlaceholder,
    std::size_t iCount,
    const std::function<bool(const float*)>& iStore,
    const char* iHelp);

/// One of some words. The one that stands for what the variable holds is the default.
/// @param iValues  each word and what it stands for
template <class Value>
Option Choice(
    const char* iName,
    const std::vector<std::pair<std::string, Value>>& iValues,
    Value& oValue,
    const char* iHelp) {
    Option option{iName, "", iHelp, {}, "one of"};
    for (const auto& [word, value] : iValues) {
        option.placeholder += (option.placeholder.empty() ? "" : "|") + word;
        option.wanted += (option.placeholder == word ? " " : ", ") + word;
        if (value == oValue) option.standard = "`" + word + "`";
    }
    option.isChoice = true;
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
