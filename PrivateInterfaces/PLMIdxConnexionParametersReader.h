#ifndef PLMIdxConnexionParametersReader_h
#define PLMIdxConnexionParametersReader_h

#include "GridloomExport.h"
#include "PLMIdxISpecificParametersReader.h"

/// The settings of a connection to a server. Each value of the parameter is a text "NAME=VALUE".
/// The pairs are kept in their order. Names aren't checked or compared; a name may occur more than
/// once.
class GRIDLOOM_API PLMIdxConnexionParametersReader : public PLMIdxISpecificParametersReader {
public:
    /// Splits the value at its first '=' and keeps both sides unchanged. Neither may be empty.
    /// @return IDX_S_OK; IDX_E_FAIL with a message for the operator, and then nothing is kept
    long int Set(const char* iValue) override;

    /// Sets the lines of help for the six settings of a server.
    void GetUsage(
        VEXListValVEXUnicodeString& oValues,
        VEXListValVEXUnicodeString& oUsages,
        VEXListValVEXBoolean& oMandatories) override;

    /// The pairs: each name, and its value at the same position. These are the lists themselves,
    /// not copies.
    VEXListValVEXUnicodeString& GetNames() { return _names; }
    VEXListValVEXUnicodeString& GetValues() { return _values; }

private:
    VEXListValVEXUnicodeString _names;
    VEXListValVEXUnicodeString _values;
};

#endif
