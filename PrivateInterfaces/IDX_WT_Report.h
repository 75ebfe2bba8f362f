#ifndef IDX_WT_Report_h
#define IDX_WT_Report_h

#include "GridloomExport.h"
#include "IDX_Bool.h"

#include <cstdio>

/// The report of a batch run: a text file of lines, flushed line by line. It tells when steps began and
/// ended, carries tagged values, and ends with the exit code and "EndOfReport" when the process ends:
/// a report without that line is that of a run that didn't end in order.
///
/// There is one report a process. Without an open file all lines are dropped. Operations that give
/// IDX_Bool give IDX_True, whatever the writing did. A line holds at most 1023 characters; what goes
/// beyond is cut.
class GRIDLOOM_API IDX_WT_Report {
public:
    IDX_WT_Report(const IDX_WT_Report&) = delete;
    IDX_WT_Report& operator=(const IDX_WT_Report&) = delete;

    static IDX_WT_Report* GetReport() { return &m_Report; }

    /// Opens the file and empties it; a file opened before is closed then. IDX_False, and nothing changed,
    /// when it can't be opened.
    IDX_Bool OpenWrite(const char* iPath);

    /// The code that the last lines give; 1 unless set.
    void SetExitcode(int iCode);

    /// Adds a line, formatted as by printf.
    IDX_Bool AddMsg(const char* iFormat, ...) __attribute__((format(printf, 2, 3)));

    // Each adds a line of its arguments, with a colon between them.
    static IDX_Bool AddTag(const char* iTag);
    static IDX_Bool AddTag(const char* iTag, int iValue);
    static IDX_Bool AddTag(const char* iTag, const char* iStrVal, int iValue);
    static IDX_Bool AddTag(const char* iTag, const char* iStrVal, const char* iStrVal2);

    /// Add the line that a step begins or ends, to the report and to the trace.
    /// @param iDepth  tabs before the line
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
