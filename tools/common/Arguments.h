#ifndef Arguments_h
#define Arguments_h

#include "Program.h"

#include <optional>
#include <string>
#include <vector>

/// The command line of a tool, read by the table of its options: a front over
/// PLMIdxParametersReader. The front adds what people expect: `--name value` and `-name=value`
/// beside `-name value`, short forms such as `-j4`, words that are no options, `--` after which
/// there are words only, values that begin with a dash, and messages with the nearest option.
class Arguments {
public:
    /// @param iProgram  must outlive this object
    explicit Arguments(const Program& iProgram) : _program(iProgram) {}

    /// Stores the values. Help and version go to the standard output.
    /// @return how the tool ends; nothing when it shall run
    std::optional<ExitCode> Read(int iCount, char** iArguments);

    /// What is no option, in its order.
    const std::vector<std::string>& Words() const { return _words; }

    static bool IsGiven(const std::string& iName);

    /// Prints on the standard error what is wrong, and where help is: two lines.
    ExitCode Refuse(const std::string& iReason) const;

private:
    struct Typed;

    void Scan(const std::vector<std::string>& iArguments);
    bool ScanOption(const Typed& iTyped, const std::string* iNext);
    const Option* FindOption(Typed& ioTyped) const;
    void SetWrong(const std::string& iReason);
    std::string Nearest(const std::string& iName) const;
    void CheckMandatory();
    bool ReadByLibrary();
    void StoreValues();

    const Program& _program;
    std::vector<std::string> _forReader;  ///< arguments in the form that the reader takes
    std::vector<std::string> _words;
    std::string _wrong;  ///< the first thing that is wrong; empty: nothing
    bool _asksForHelp = false;
    bool _asksForVersion = false;
};

#endif
