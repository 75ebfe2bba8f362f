#include "IDX_WT_Report.h"

#include "IDX_Base_Trace.h"
#include "VEXTime.h"
#include "VEXUnicodeString.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

// Lines of a report:
//
//   # 14:03:07 - Begin Octrees (1795500187)
//   Parts:12
//   # 14:03:08 - End   Octrees (1795500188)
//   [Return code is] : 0
//   EndOfReport

namespace {

constexpr int kLineSize = 1024;  ///< with the terminator

using Line = char[kLineSize];

/// Formats a line, and cuts it at kLineSize. A format that can't be written gives an empty line.
__attribute__((format(printf, 2, 0))) void Format(
    Line& oLine, const char* iFormat, va_list iArguments) {
    // The analyser of Clang 14 doesn't follow va_start here.
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized)
    if (std::vsnprintf(oLine, sizeof oLine, iFormat, iArguments) < 0) oLine[0] = '\0';
}

}  // namespace

int IDX_WT_Report::m_ExitCode = 1;

IDX_WT_Report::IDX_WT_Report() : m_File(nullptr) {}

/// Runs at the end of the process. A report that lacks these lines is of a run that was killed or
/// crashed.
IDX_WT_Report::~IDX_WT_Report() {
    AddMsg("[Return code is] : %d", m_ExitCode);
    AddMsg("EndOfReport");
    CloseFile();
}

IDX_Bool IDX_WT_Report::OpenWrite(const char* iPath) {
    FILE* file = std::fopen(iPath, "w");
    if (file == nullptr) return IDX_False;  // a report that is open stays open
    CloseFile();
    m_File = file;
    return IDX_True;
}

void IDX_WT_Report::CloseFile() {
    if (m_File != nullptr) (void)std::fclose(m_File);  // each line was flushed
    m_File = nullptr;
}

void IDX_WT_Report::SetExitcode(int iCode) {
    m_ExitCode = iCode;
}

IDX_Bool IDX_WT_Report::AddMsg(const char* iFormat, ...) {
    Line line;
    va_list arguments;
    va_start(arguments, iFormat);
    Format(line, iFormat, arguments);
    va_end(arguments);
    // Each line is flushed, so that a run that is killed leaves all lines up to that moment.
    if (m_File != nullptr) {
        std::fputs(line, m_File);
        std::fputc('\n', m_File);
        std::fflush(m_File);
    }
    return IDX_True;
}

IDX_Bool IDX_WT_Report::AddTag(const char* iTag) {
    return m_Report.AddMsg("%s", iTag);
}

IDX_Bool IDX_WT_Report::AddTag(const char* iTag, int iValue) {
    return m_Report.AddMsg("%s:%d", iTag, iValue);
}

IDX_Bool IDX_WT_Report::AddTag(const char* iTag, const char* iStrVal, int iValue) {
    return m_Report.AddMsg("%s:%s:%d", iTag, iStrVal, iValue);
}

IDX_Bool IDX_WT_Report::AddTag(const char* iTag, const char* iStrVal, const char* iStrVal2) {
    return m_Report.AddMsg("%s:%s:%s", iTag, iStrVal, iStrVal2);
}

void IDX_WT_Report::Begin(const char* iName, int iDepth) {
    Print(_BEGIN, iName, iDepth);
}

void IDX_WT_Report::End(const char* iName, int iDepth) {
    Print(_END, iName, iDepth);
}

void IDX_WT_Report::Print(int iKind, const char* iName, int iDepth) {
    // The time appears twice: for people as local time, for programs as seconds since 1970.
    const VEXTime now;
    if (iKind == _BEGIN) IDX_Base_Trace::Info("%s", "");
    Line line;
    // Tabs show the depth of the step. They never take more than the line has.
    const int tabs = std::clamp(iDepth, 0, kLineSize - 1);
    std::memset(line, '\t', static_cast<std::size_t>(tabs));
    std::snprintf(
        line + tabs, static_cast<std::size_t>(kLineSize - tabs), "# %s - %s %s (%d)",
        now.ConvertToString("%H:%M:%S", 0).ConvertToChar(), iKind == _BEGIN ? "Begin" : "End  ",
        iName, static_cast<int>(now.Gettime_t()));
    IDX_Base_Trace::Info("%s", line);
    m_Report.AddMsg("%s", line);
}
