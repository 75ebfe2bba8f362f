#include "PLMIdxConnexionParametersReader.h"

#include "IDX_Base_Trace.h"
#include "IDX_Status.h"

#include <cstring>

// The parameter is given once for each setting: -c NAME=VALUE.

namespace {

/// A line of help. In the pair, the word after '=' names what the user writes there.
struct Setting {
    const char* pair;
    const char* usage;
    VEXBoolean mandatory;
};

const Setting kSettings[] = {
    {"Authentification.User=UserName",    "Administrator name",           1},
    {"Authentification.Password=UserPwd", "Password of admin",            1},
    {"Security.Context=SecurityContext",  "Security context for admin",   1},
    {"Environment.ServerName=HostName",   "Server name",                  1},
    {"Environment.ServerPort=PortNumber", "Server's port",                1},
    {"Environment.URI=RootUri",           "Root URI if one is necessary", 0},
};

}  // namespace

long int PLMIdxConnexionParametersReader::Set(const char* iValue) {
    // The first '=' ends the name, so a value may have further ones.
    const char* equals = iValue != nullptr ? std::strchr(iValue, '=') : nullptr;
    if (equals == nullptr || equals == iValue) {
        IDX_Base_Trace::Info("Failure: Invalid name/value has been specified for -c argument.");
        return IDX_E_FAIL;
    }
    const VEXUnicodeString name(iValue, static_cast<std::uint64_t>(equals - iValue));
    const char* value = equals + 1;
    if (*value == '\0') {
        IDX_Base_Trace::Info(
            "Failure: No value has been specified for '%s' parameter", name.ConvertToChar());
        return IDX_E_FAIL;
    }
    // The two lists have one length, so a position leads from a name to its value.
    _names.Append(name);
    _values.Append(value);
    return IDX_S_OK;
}

void PLMIdxConnexionParametersReader::GetUsage(
    VEXListValVEXUnicodeString& oValues,
    VEXListValVEXUnicodeString& oUsages,
    VEXListValVEXBoolean& oMandatories) {
    // The lists may hold lines of another reader.
    oValues.RemoveAll(VEXCollec::ReleaseMemory);
    oUsages.RemoveAll(VEXCollec::ReleaseMemory);
    oMandatories.RemoveAll(VEXCollec::ReleaseMemory);
    for (const Setting& setting : kSettings) {
        oValues.Append(setting.pair);
        oUsages.Append(setting.usage);
        oMandatories.Append(setting.mandatory);
    }
}
