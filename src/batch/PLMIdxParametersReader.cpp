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

namespace {

/// Characters of the left column of help beyond the longest name: a blank and "value".
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
    PLMIdxISpecificParametersReader* reader;  ///< takes the values, or null; not owned
    bool ignored;                             ///< nothing goes to the store
    bool mandatory;
    bool boolean;  ///< takes no value
    bool seen;     ///< given, and its value stored
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
    std::printf("\n");
    for (int next = 1; next < iArgc;) {
        const char* argument = iArgv[next++];
        if (AsksForHelp(argument)) {
            Usage();
            return IDX_S_NOTHING_DONE;
        }
        // What begins with a dash is the next argument, never a value.
        const bool hasValue = next < iArgc && !BeginsWithDash(iArgv[next]);
        const char* value = hasValue ? iArgv[next++] : nullptr;
        const long int status = _Take(argument, value);
        if (IDX_Failed(status)) return status;
    }
    return _CheckMandatory();
}

void PLMIdxParametersReader::Usage() {
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

/// Prints one line of help, whose left column is the name and what stands for the value, if anything.
/// The column is padded, never cut.
void PLMIdxParametersReader::PrintLineUsage(
    const char* iName, const char* iValueWord, bool iMandatory, const char* iUsage) {
    VEXUnicodeString left(iName);
    if (iValueWord != nullptr) left = left + " " + iValueWord;
    std::printf(
        "  -%-*s \t: %s %s\n", _maxNameLength + kValueColumn, left.ConvertToChar(), iUsage,
        iMandatory ? "[mandatory]" : "");
}

void PLMIdxParametersReader::Reset() {
    for (int i = 1; i <= _parameters.Size(); ++i) delete static_cast<Parameter*>(_parameters[i]);
    _parameters.RemoveAll(VEXCollec::ReleaseMemory);
    _parametersByName.RemoveAll();
}

/// Keeps a copy of a new parameter. Where only its entry by name finds no memory, the record stays.
long int PLMIdxParametersReader::_Add(const Parameter& iParameter) {
    if (GetParameter(iParameter.name) != nullptr) return IDX_E_FAIL;
    auto* parameter = new (std::nothrow) Parameter(iParameter);
    if (parameter == nullptr) return IDX_E_FAIL;
    _parameters.Append(parameter);
    return _parametersByName.Insert(parameter->name, parameter) != 0 ? IDX_S_OK : IDX_E_FAIL;
}

/// Takes one argument in the place of a name, and the value behind it or null.
long int PLMIdxParametersReader::_Take(const char* iArgument, const char* iValue) {
    if (!BeginsWithDash(iArgument)) {
        IDX_Base_Trace::Info("Error: Unknown command line argument: %s", iArgument);
        return _Refuse();
    }
    const char* name = iArgument + 1;
    Parameter* parameter = GetParameter(name);
    if (parameter == nullptr) {
        IDX_Base_Trace::Info("Error: Parameter -%s is unknown.", name);
        return _Refuse();
    }
    if (iValue != nullptr && parameter->boolean) {
        IDX_Base_Trace::Info("Error: %s is unexpected ! Parameter -%s is boolean.", iValue, name);
        return _Refuse();
    }
    if (iValue == nullptr && !parameter->boolean) {
        IDX_Base_Trace::Info("Error: A value is mandatory after -%s.", name);
        return _Refuse();
    }
    return _HandOver(*parameter, name, iValue != nullptr ? iValue : "");
}

/// Gives a value to the specific reader, to nobody, or to the store.
long int PLMIdxParametersReader::_HandOver(
    Parameter& ioParameter, const char* iName, const char* iValue) {
    if (ioParameter.reader != nullptr) {
        if (!IDX_Failed(ioParameter.reader->Set(iValue))) return IDX_S_OK;
        IDX_Base_Trace::Info("Error when setting param -%s.", iName);
        return _Refuse();
    }
    if (ioParameter.ignored) return IDX_S_OK;
    if (ioParameter.seen) {
        IDX_Base_Trace::Info("Error: Parameter -%s is defined twice.", iName);
        return _Refuse();
    }
    // The store refuses a name that was set by other means, which is no error of the user's.
    if (IDX_Failed(PLMIdxParameters::Set(iName, iValue))) {
        IDX_Base_Trace::Debug("Error when setting param -%s.", iName);
        return IDX_E_FAIL;
    }
    ioParameter.seen = true;
    return IDX_S_OK;
}

/// Names all mandatory parameters that weren't given.
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
    return isMissing ? _Refuse() : IDX_S_OK;
}

/// Shows the user what would be right.
long int PLMIdxParametersReader::_Refuse() {
    Usage();
    return IDX_E_FAIL;
}

/// Prints the lines of help of a specific reader, each under the name of the parameter.
/// @return false when its lists don't fit together
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
