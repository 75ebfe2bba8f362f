#ifndef PLMIdxISpecificParametersReader_h
#define PLMIdxISpecificParametersReader_h

#include "GridloomExport.h"
#include "VEXListValVEXBoolean.h"
#include "VEXListValVEXUnicodeString.h"

/// Takes the values of one parameter of the command line, in place of the common store. Bound to the
/// parameter with PLMIdxParametersReader::RedirectParameter. Never deleted through this class.
class GRIDLOOM_API PLMIdxISpecificParametersReader {
public:
    // The order of the virtual operations is part of the interface.

    /// Takes one value; a parameter may be given any number of times.
    /// @return a status; a failure ends the reading of the command line
    virtual long int Set(const char* iValue) = 0;

    /// Gives the lines of help: what stands for the value, what it is, and whether it must be given. The
    /// three lists come out with one size, a position for each line.
    virtual void GetUsage(
        VEXListValVEXUnicodeString& oValues,
        VEXListValVEXUnicodeString& oUsages,
        VEXListValVEXBoolean& oMandatories) = 0;
};

#endif
