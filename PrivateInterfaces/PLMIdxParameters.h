#ifndef PLMIdxParameters_h
#define PLMIdxParameters_h

#include "GridloomExport.h"

/// The parameters of a batch tool, by name. PLMIdxParametersReader sets them from the command line.
/// Any code of the tool may read them. A name is set once, and its value stays until the process
/// ends. Failures aren't traced: their meaning depends on the caller. One thread only.
class GRIDLOOM_API PLMIdxParameters {
public:
    /// Copies the pointer to the table of the other object.
    PLMIdxParameters& operator=(const PLMIdxParameters& iOther) = default;

    /// Stores a copy of a value, which may be the empty text. Null counts as the empty text.
    /// @return IDX_S_OK, or IDX_E_FAIL when the name has a value already, which stays, and without
    ///         memory
    static long int Set(const char* iName, const char* iValue);

    /// The value of a name, or null when it has none. Valid, at one address, until the process
    /// ends.
    static const char* Get(const char* iName);

private:
    struct Table;

    PLMIdxParameters();
    ~PLMIdxParameters();
    PLMIdxParameters(const PLMIdxParameters&) = delete;

    static PLMIdxParameters theParameters;

    Table* _table;  ///< null before the first Set; owned
};

#endif
