#include "PLMIdxParameters.h"

#include "IDX_Status.h"
#include "VEXHashDico.h"
#include "VEXListValVEXString.h"
#include "VEXUnicodeString.h"

#include <new>

/// The names and values that were set.
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
    // Objects that are destroyed later may still call Get(), and must find no table. The store is
    // volatile because a compiler may leave out a plain store to an object at the end of its life.
    Table* volatile& last = _table;
    last = nullptr;
}

long int PLMIdxParameters::Set(const char* iName, const char* iValue) {
    // The table is created with the first name, so that a program without parameters allocates
    // nothing. A text keeps its address in the list, so the dictionary can point to it.
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
