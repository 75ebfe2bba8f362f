#include "PLMIdxParametersReader.h"

#include "common/TraceFailure.h"

#include "IDX_Base_Trace.h"
#include "IDX_Status.h"
#include "PLMIdxISpecificParametersReader.h"
#include "PLMIdxParameters.h"
#include "VEXUnicodeString.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

// The way of one argument: Read() takes it and the value after it, _ReadArgument() checks both
// against the declarations, _StoreValue() passes the value to the parameter's own reader or to
// PLMIdxParameters. Any error of the user prints a message and then the usage.

namespace {

/// The left column of help has the longest name and as many characters more: a blank and "value".
constexpr int kValueColumn = 6;

bool BeginsWithDash(const char* iArgument) {
    return iArgument[0] == '-';
}

bool AsksForHelp(const char* iArgument) {
    return std::strcmp(iArgument, "-help") == 0 || std::strcmp(iArgument, "-h") == 0 ||
           std::strcmp(iArgument, "-?") == 0;
}

}  // namespace

/// A declared parameter.
struct PLMIdxParametersReader::Parameter {
    VEXUnicodeString name;                    ///< without the dash
    VEXUnicodeString usage;                   ///< the line of help; empty to be hidden
    PLMIdxISpecificParametersReader* reader;  ///< receives the values; null for none; not owned
    bool ignored;                             ///< no value goes to PLMIdxParameters
    bool mandatory;
    bool boolean;  ///< has no value
    bool seen;     ///< was on the command line, and its value is stored
};

PLMIdxParametersReader::PLMIdxParametersReader()
    : _parameters(0), _parametersByName(10), _maxNameLength(0) {}

PLMIdxParametersReader::~PLMIdxParametersReader() {
    Reset();
}

long int PLMIdxParametersReader::DeclareParameter(
    const char* iName, bool iMandatory, bool iBoolean, const char* iUsage) {
    const Parameter parameter = {iName, iUsage, nullptr, false, iMandatory, iBoolean, false};
    const long int status = _Add(parameter);
    if (IDX_Failed(status)) return status;
    _maxNameLength = std::max(_maxNameLength, parameter.name.GetLengthInChar());
    return IDX_S_OK;
}

long int PLMIdxParametersReader::IgnoreParameter(const char* iName) {
    return _Add({iName, "", nullptr, true, false, false, false});
}

long int PLMIdxParametersReader::RedirectParameter(
    const char* iName, PLMIdxISpecificParametersReader* iReader) {
    return _Add({iName, "", iReader, true, false, false, false});
}

long int PLMIdxParametersReader::Read(int iArgc, char** iArgv) {
    // Each round reads a name and, if one follows, its value. The first error ends the reading;
    // what was stored before it stays.
    std::printf("\n");
    for (int next = 1; next < iArgc;) {
        const char* argument = iArgv[next++];
        if (AsksForHelp(argument)) {
            Usage();
            return IDX_S_NOTHING_DONE;
        }
        // An argument that begins with a dash is a name, never a value.
        const bool hasValue = next < iArgc && !BeginsWithDash(iArgv[next]);
        const char* value = hasValue ? iArgv[next++] : nullptr;
        const long int status = _ReadArgument(argument, value);
        if (IDX_Failed(status)) return status;
    }
    return _CheckMandatory();
}

void PLMIdxParametersReader::Usage() {
    // Parameters appear in the order of their declaration. Ignored ones and those without a text
    // are hidden.
    std::printf("\nUsage:\n\n  -h | -help | -? : Display the current help\n\n");
    for (int i = 1; i <= _parameters.Size(); ++i) {
        const auto* parameter = static_cast<const Parameter*>(_parameters[i]);
        if (parameter == nullptr) {
            IDX_Base_Trace::Debug("Internal Error in PLMIdxParametersReader::Usage - (NULL == p)");
            return;
        }
        if (parameter->reader != nullptr) {
            if (!_PrintSpecificUsage(*parameter)) return;
        } else if (!parameter->ignored && parameter->usage.GetLengthInByte() > 0) {
            PrintLineUsage(
                parameter->name, parameter->boolean ? nullptr : "value", parameter->mandatory,
                parameter->usage);
        }
    }
    std::printf("\n");
}

PLMIdxParametersReader::Parameter* PLMIdxParametersReader::GetParameter(const char* iName) {
    return static_cast<Parameter*>(_parametersByName.Locate(iName));
}

/// Prints one line of help. The left column has the name and, if there is one, the word for the
/// value. It is padded to the common width, never cut.
void PLMIdxParametersReader::PrintLineUsage(
    const char* iName, const char* iValueWord, bool iMandatory, const char* iUsage) {
    VEXUnicodeString left(iName);
    if (iValueWord != nullptr) left = left + " " + iValueWord;
    std::printf(
        "  -%-*s \t: %s %s\n", _maxNameLength + kValueColumn, left.ConvertToChar(), iUsage,
        iMandatory ? "[mandatory]" : "");
}

/// Deletes all declarations.
void PLMIdxParametersReader::Reset() {
    for (int i = 1; i <= _parameters.Size(); ++i) delete static_cast<Parameter*>(_parameters[i]);
    _parameters.RemoveAll(VEXCollec::ReleaseMemory);
    _parametersByName.RemoveAll();
}

/// Adds a copy of a new parameter. When there is no memory for its entry by name, the copy stays in
/// the list of parameters.
long int PLMIdxParametersReader::_Add(const Parameter& iParameter) {
    if (GetParameter(iParameter.name) != nullptr) return IDX_E_FAIL;
    auto* parameter = new (std::nothrow) Parameter(iParameter);
    if (parameter == nullptr) return IDX_E_FAIL;
    _parameters.Append(parameter);
    return _parametersByName.Insert(parameter->name, parameter) != 0 ? IDX_S_OK : IDX_E_FAIL;
}

/// Checks a name and its value (null for none) against the declarations, and passes the value on.
long int PLMIdxParametersReader::_ReadArgument(const char* iArgument, const char* iValue) {
    if (!BeginsWithDash(iArgument)) {
        IDX_Base_Trace::Info("Error: Unknown command line argument: %s", iArgument);
        return _FailWithUsage();
    }
    const char* name = iArgument + 1;
    Parameter* parameter = GetParameter(name);
    if (parameter == nullptr) {
        IDX_Base_Trace::Info("Error: Parameter -%s is unknown.", name);
        return _FailWithUsage();
    }
    if (iValue != nullptr && parameter->boolean) {
        IDX_Base_Trace::Info("Error: %s is unexpected ! Parameter -%s is boolean.", iValue, name);
        return _FailWithUsage();
    }
    if (iValue == nullptr && !parameter->boolean) {
        IDX_Base_Trace::Info("Error: A value is mandatory after -%s.", name);
        return _FailWithUsage();
    }
    return _StoreValue(*parameter, name, iValue != nullptr ? iValue : "");
}

/// Passes a value to the parameter's own reader or to PLMIdxParameters. The value of an ignored
/// parameter is dropped.
long int PLMIdxParametersReader::_StoreValue(
    Parameter& ioParameter, const char* iName, const char* iValue) {
    if (ioParameter.reader != nullptr) {
        if (!IDX_Failed(ioParameter.reader->Set(iValue))) return IDX_S_OK;
        IDX_Base_Trace::Info("Error when setting param -%s.", iName);
        return _FailWithUsage();
    }
    if (ioParameter.ignored) return IDX_S_OK;
    if (ioParameter.seen) {
        IDX_Base_Trace::Info("Error: Parameter -%s is defined twice.", iName);
        return _FailWithUsage();
    }
    // The tool itself may have set the name before. That isn't the user's error, so no usage is
    // printed.
    if (IDX_Failed(PLMIdxParameters::Set(iName, iValue))) {
        IDX_Base_Trace::Debug("Error when setting param -%s.", iName);
        return IDX_E_FAIL;
    }
    ioParameter.seen = true;
    return IDX_S_OK;
}

/// Checks that all mandatory parameters were given. Prints each one that is missing, so that the
/// user can add all of them at once.
long int PLMIdxParametersReader::_CheckMandatory() {
    bool isMissing = false;
    for (int i = 1; i <= _parameters.Size(); ++i) {
        const auto* parameter = static_cast<const Parameter*>(_parameters[i]);
        if (parameter == nullptr) {
            return TraceStatus(
                "Internal Error in PLMIdxParametersReader::Read - (NULL == p)", IDX_E_FAIL);
        }
        if (!parameter->ignored && !parameter->seen && parameter->mandatory) {
            IDX_Base_Trace::Info("Error: param -%s is mandatory", parameter->name.ConvertToChar());
            isMissing = true;
        }
    }
    return isMissing ? _FailWithUsage() : IDX_S_OK;
}

/// Prints the usage after an error of the user.
long int PLMIdxParametersReader::_FailWithUsage() {
    Usage();
    return IDX_E_FAIL;
}

/// Prints the lines of help of a parameter with its own reader. Each line starts with the
/// parameter's name.
/// @return false when the reader's three lists differ in length
bool PLMIdxParametersReader::_PrintSpecificUsage(const Parameter& iParameter) {
    VEXListValVEXUnicodeString values;
    VEXListValVEXUnicodeString usages;
    VEXListValVEXBoolean mandatories;
    iParameter.reader->GetUsage(values, usages, mandatories);
    if (values.Size() != usages.Size() || values.Size() != mandatories.Size()) {
        IDX_Base_Trace::Debug(
            "Error in PLMIdxParametersReader::Usage - (values.Size() != usages.Size()) for param "
            "%s.",
            iParameter.name.ConvertToChar());
        return false;
    }
    for (int i = 1; i <= values.Size(); ++i) {
        PrintLineUsage(iParameter.name, values[i], mandatories[i] != 0, usages[i]);
    }
    return true;
}
