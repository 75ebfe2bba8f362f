#ifndef IDX_WT_Report_h
#define IDX_WT_Report_h

#include "GridloomExport.h"
#include "IDX_Bool.h"

#include <cstdio>

/// The report of a batch run: a text file, flushed after each line. It says when steps began and
/// ended, and has tagged values. At the end of the process it gets the exit code and "EndOfReport".
/// A report without that line is of a run that crashed or was killed.
///
/// There is one report in a process. Without an open file all lines are dropped. Operations that
/// return IDX_Bool return IDX_True, even when a write fails. A line has at most 1023 characters and
/// is cut there.
class GRIDLOOM_API IDX_WT_Report {
public:
    IDX_WT_Report(const IDX_WT_Report&) = delete;
    IDX_WT_Report& operator=(const IDX_WT_Report&) = delete;

    static IDX_WT_Report* GetReport() { return &m_Report; }

    /// Opens the file, empties it, and closes a file that was open before. When it can't be opened,
    /// the result is IDX_False and nothing changes.
    IDX_Bool OpenWrite(const char* iPath);

    /// Sets the exit code for the last lines; 1 when never set.
    void SetExitcode(int iCode);

    /// Adds a line, formatted as by printf.
    IDX_Bool AddMsg(const char* iFormat, ...) __attribute__((format(printf, 2, 3)));

    // Each adds a line of its arguments, with colons between them.
    static IDX_Bool AddTag(const char* iTag);
    static IDX_Bool AddTag(const char* iTag, int iValue);
    static IDX_Bool AddTag(const char* iTag, const char* iStrVal, int iValue);
    static IDX_Bool AddTag(const char* iTag, const char* iStrVal, const char* iStrVal2);

    /// Add a line to the report and to the trace: the step begins, or ends.
    /// @param iDepth  number of tabs before the line
    static void Begin(const char* iName, int iDepth);
    static void End(const char* iName, int iDepth);

private:
    IDX_WT_Report();
    ~IDX_WT_Report();

    static void Print(int iKind, const char* iName, int iDepth);
    void CloseFile();

    static IDX_WT_Report m_Report;
    static int m_ExitCode;

    // Kinds of step lines.
    static const int _BEGIN = 0;
    static const int _END = 1;

    FILE* m_File;  ///< null until OpenWrite succeeds
};

#endif
