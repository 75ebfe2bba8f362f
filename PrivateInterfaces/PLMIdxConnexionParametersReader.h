#ifndef PLMIdxConnexionParametersReader_h
#define PLMIdxConnexionParametersReader_h

#include "GridloomExport.h"
#include "PLMIdxISpecificParametersReader.h"

/// The settings of a connection to a server: values "NAME=VALUE" of one parameter of the command line,
/// kept as pairs in their order. Names are neither checked nor compared; one may occur more than once.
class GRIDLOOM_API PLMIdxConnexionParametersReader : public PLMIdxISpecificParametersReader {
public:
    /// Splits the value at its first '=' and keeps both sides as they are; neither may be empty.
    /// @return IDX_S_OK, or IDX_E_FAIL with a message for the operator, and nothing is kept
    long int Set(const char* iValue) override;

    /// Gives the lines of help for the six settings that servers know.
    void GetUsage(
        VEXListValVEXUnicodeString& oValues,
        VEXListValVEXUnicodeString& oUsages,
        VEXListValVEXBoolean& oMandatories) override;

    /// The pairs: a name, and at the same position its value. The lists themselves.
    VEXListValVEXUnicodeString& GetNames() { return _names; }
    VEXListValVEXUnicodeString& GetValues() { return _values; }

private:
    VEXListValVEXUnicodeString _names;
    VEXListValVEXUnicodeString _values;
};

#endif
