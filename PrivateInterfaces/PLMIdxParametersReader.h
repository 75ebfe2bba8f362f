#ifndef PLMIdxParametersReader_h
#define PLMIdxParametersReader_h

#include "GridloomExport.h"
#include "VEXHashDico.h"
#include "VEXRawCollPV.h"

class PLMIdxISpecificParametersReader;

/// Reads the command line of a batch tool: docs/file-formats.md, "Command line". A tool declares all its
/// parameters, calls Read once, and finds the values in PLMIdxParameters, which outlive the reader.
/// Messages go to IDX_Base_Trace, the usage text to the standard output. One thread only.
///
/// Owns what was declared, but not the specific readers, which must live as long as it is used.
class GRIDLOOM_API PLMIdxParametersReader {
public:
    PLMIdxParametersReader();
    ~PLMIdxParametersReader();
    PLMIdxParametersReader(const PLMIdxParametersReader&) = delete;
    PLMIdxParametersReader& operator=(const PLMIdxParametersReader&) = delete;

    // The declaring operations take a name without its dash, and give IDX_S_OK, or IDX_E_FAIL without a
    // message when the name is declared already, in whatever way, and without memory.

    /// A parameter whose value goes to PLMIdxParameters; it may be given once.
    /// @param iMandatory  Read fails without it
    /// @param iBoolean    takes no value, and stores the empty text
    /// @param iUsage      the line of help; an empty one hides the parameter from Usage
    long int DeclareParameter(
        const char* iName, bool iMandatory, bool iBoolean, const char* iUsage);

    /// A parameter that takes a value and has no effect. It may be given any number of times.
    long int IgnoreParameter(const char* iName);

    /// A parameter whose every value goes to `iReader`. It may be given any number of times.
    long int RedirectParameter(const char* iName, PLMIdxISpecificParametersReader* iReader);

    /// Reads the arguments of the process behind the first one, up to the first error. What was stored by
    /// then stays stored, and counts as given in a second call.
    /// @return IDX_S_OK; IDX_S_NOTHING_DONE when help was asked for and printed; IDX_E_FAIL on any error,
    ///         behind its message
    long int Read(int iArgc, char** iArgv);

    /// Prints the lines of help, in the order of declaration.
    void Usage();

private:
    struct Parameter;

    Parameter* GetParameter(const char* iName);
    void PrintLineUsage(
        const char* iName, const char* iValueWord, bool iMandatory, const char* iUsage);
    void Reset();

    long int _Add(const Parameter& iParameter);
    long int _Take(const char* iArgument, const char* iValue);
    long int _HandOver(Parameter& ioParameter, const char* iName, const char* iValue);
    long int _CheckMandatory();
    long int _Refuse();
    bool _PrintSpecificUsage(const Parameter& iParameter);

    VEXRawCollPV _parameters;       ///< Parameter*, in the order of declaration; owned
    VEXHashDico _parametersByName;  ///< name to Parameter*
    int _maxNameLength;             ///< characters of the longest name of DeclareParameter
};

#endif
