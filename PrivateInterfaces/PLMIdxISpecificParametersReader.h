#ifndef PLMIdxISpecificParametersReader_h
#define PLMIdxISpecificParametersReader_h

#include "GridloomExport.h"
#include "VEXListValVEXBoolean.h"
#include "VEXListValVEXUnicodeString.h"

/// Receives the values of one parameter of the command line, instead of PLMIdxParameters. A tool
/// connects it to the parameter by PLMIdxParametersReader::RedirectParameter(). Never deleted
/// through this class.
class GRIDLOOM_API PLMIdxISpecificParametersReader {
public:
    // The order of the virtual operations is part of the interface.

    /// Receives one value. The user may give the parameter any number of times.
    /// @return a status; a failure ends the reading of the command line
    virtual long int Set(const char* iValue) = 0;

    /// Sets the lines of help: the word for the value, its meaning, and whether it is mandatory.
    /// The three lists have one length; each line of help is one position.
    virtual void GetUsage(
        VEXListValVEXUnicodeString& oValues,
        VEXListValVEXUnicodeString& oUsages,
        VEXListValVEXBoolean& oMandatories) = 0;
};

#endif
