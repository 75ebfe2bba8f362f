#ifndef PLMIdxParametersReader_h
#define PLMIdxParametersReader_h

#include "GridloomExport.h"
#include "VEXHashDico.h"
#include "VEXRawCollPV.h"

class PLMIdxISpecificParametersReader;

/// Reads the command line of a batch tool: docs/file-formats.md, "Command line". A tool declares
/// all its parameters, calls Read() once, and gets the values from PLMIdxParameters. The values
/// outlive the reader. Messages go to IDX_Base_Trace, the usage text goes to the standard output.
/// One thread only.
///
/// Owns the declarations. Doesn't own the specific readers; they must live as long as this object
/// is used.
class GRIDLOOM_API PLMIdxParametersReader {
public:
    PLMIdxParametersReader();
    ~PLMIdxParametersReader();
    PLMIdxParametersReader(const PLMIdxParametersReader&) = delete;
    PLMIdxParametersReader& operator=(const PLMIdxParametersReader&) = delete;

    // The operations that declare a parameter expect its name without the dash. They return
    // IDX_S_OK. They return IDX_E_FAIL, without a message, when the name is declared already, and
    // without memory.

    /// Declares a parameter whose value goes to PLMIdxParameters. The user may give it once.
    /// @param iMandatory  Read() fails when it isn't given
    /// @param iBoolean    it has no value; the empty text is stored
    /// @param iUsage      the line of help; an empty one hides the parameter from Usage()
    long int DeclareParameter(
        const char* iName, bool iMandatory, bool iBoolean, const char* iUsage);

    /// Declares a parameter with a value that has no effect. The user may give it any number of
    /// times.
    long int IgnoreParameter(const char* iName);

    /// Declares a parameter whose values go to `iReader`. The user may give it any number of times.
    long int RedirectParameter(const char* iName, PLMIdxISpecificParametersReader* iReader);

    /// Reads the arguments of the process after the program's name, up to the first error. Values
    /// that were stored before an error stay stored, and count as given in a second call.
    /// @return IDX_S_OK; IDX_S_NOTHING_DONE when the user asked for help, which was printed;
    ///         IDX_E_FAIL after any error, with its message
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
    long int _ReadArgument(const char* iArgument, const char* iValue);
    long int _StoreValue(Parameter& ioParameter, const char* iName, const char* iValue);
    long int _CheckMandatory();
    long int _FailWithUsage();
    bool _PrintSpecificUsage(const Parameter& iParameter);

    VEXRawCollPV _parameters;       ///< Parameter*, in the order of declaration; owned
    VEXHashDico _parametersByName;  ///< name to Parameter*
    int _maxNameLength;             ///< characters of the longest name of DeclareParameter
};

#endif
