#ifndef Arguments_h
#define Arguments_h

#include "PLMIdxParametersReader.h"

#include <cstddef>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

/// The command line of a tool: a front over PLMIdxParametersReader, which keeps the names, the texts of help and
/// the messages. The front adds what people are used to: `--name value` and `--name=value` beside `-name value`,
/// `--help`, `--version`, words that are no options, `--` behind which there are only words, and values that are
/// numbers below zero.
///
/// Declare all options, call Read() once, then ask for the values. What is wrong is told on the standard error.
class Arguments {
public:
    enum class Result { Run, Done, Wrong };  ///< Done: help or version was asked for, and printed

    /// @param iTool   the program's name, for its messages
    /// @param iAbout  the text above the options in the help, with its newlines
    Arguments(const char* iTool, const char* iAbout);

    void DeclareValue(const char* iName, bool iMandatory, const char* iUsage);
    void DeclareFlag(const char* iName, const char* iUsage);

    Result Read(int iCount, char** iArguments);

    /// What is no option, in its order.
    const std::vector<std::string>& Words() const { return _words; }
    static bool IsGiven(const char* iName);

    // Each takes over the value of an option that was given, and leaves its last argument alone otherwise. A value
    // that doesn't fit is told, and Result() is Wrong from then on.

    void GetText(const char* iName, std::string& oText);  ///< not empty
    void GetNumber(const char* iName, int iLowest, int iHighest, int& oNumber);
    void GetNumber(const char* iName, int iLowest, int iHighest, unsigned int& oNumber);
    void GetLength(const char* iName, float& oLength);  ///< finite and above 0

    /// Finite numbers with commas between them, exactly iCount.
    void GetNumbers(const char* iName, std::size_t iCount, std::vector<float>& oNumbers);

    /// @param oChoice  the place of the value in iWords
    void GetChoice(
        const char* iName, std::initializer_list<const char*> iWords, std::size_t& oChoice);

    /// Tells what is wrong with the command line.
    void Complain(const std::string& iReason);

    /// Run, or Wrong when something was told.
    Result GetResult() const { return _isWrong ? Result::Wrong : Result::Run; }

private:
    struct Split;

    Result ReadOption(const Split& iOption, int iCount, char** iArguments, int& ioNext);
    bool TakesValue(const std::string& iName) const;
    void PrintHelp();
    void Refuse(const char* iName, const std::string& iWish, const std::string& iValue);

    std::string _tool;
    std::string _about;
    PLMIdxParametersReader _reader;
    std::map<std::string, bool> _takesValue;  ///< by declared name
    std::vector<std::string> _forReader;      ///< arguments in the form that the reader takes
    std::vector<std::string> _words;
    bool _isWrong = false;
};

#endif
