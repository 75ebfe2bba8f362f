#include "PLMIdxParameters.h"

#include "IDX_Status.h"
#include "VEXHashDico.h"
#include "VEXListValVEXString.h"
#include "VEXUnicodeString.h"

#include <new>

struct PLMIdxParameters::Table {
    VEXHashDico _index{10};       ///< name to VEXString*, an element of `_values`
    VEXListValVEXString _values;  ///< in the order in which they were set
};

PLMIdxParameters::PLMIdxParameters() : _table(nullptr) {}

PLMIdxParameters::~PLMIdxParameters() {
    if (_table == nullptr) return;
    _table->_index.RemoveAll();
    _table->_values.RemoveAll(VEXCollec::ReleaseMemory);
    delete _table;
    // What goes after this object may still ask, and a plain store at the end of a life is left out.
    Table* volatile& last = _table;
    last = nullptr;
}

long int PLMIdxParameters::Set(const char* iName, const char* iValue) {
    Table*& table = theParameters._table;
    if (table == nullptr) table = new (std::nothrow) Table;
    if (table == nullptr) return IDX_E_FAIL;
    const VEXUnicodeString name(iName);
    if (table->_index.Locate(name) != nullptr) return IDX_E_FAIL;
    const int last = table->_values.Append(iValue);
    return table->_index.Insert(name, &table->_values[last]) != 0 ? IDX_S_OK : IDX_E_FAIL;
}

const char* PLMIdxParameters::Get(const char* iName) {
    const Table* table = theParameters._table;
    if (table == nullptr) return nullptr;
    const auto* value = static_cast<const VEXString*>(table->_index.Locate(iName));
    return value != nullptr ? value->CastToCharPtr() : nullptr;
}
