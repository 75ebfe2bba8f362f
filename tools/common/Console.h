#ifndef Console_h
#define Console_h

#include <cstddef>
#include <string>
#include <vector>

/// What the operator sees while a batch runs: on a terminal one bar that moves, elsewhere a plain line
/// for each part, and a line on the standard error for each failure.
class Console {
public:
    explicit Console(std::size_t iFiles);
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() { ClearBar(); }

    /// Tells that the next file is being read.
    void StartFile(const std::string& iName);

    /// Tells that part iPart of iParts in the present file, counted from 0, is being built.
    void StartPart(const std::string& iName, std::size_t iPart, std::size_t iParts);

    /// Names what failed, and why.
    void Fail(const std::string& iName, const std::string& iReason);

    /// Tells something odd that is no failure.
    void Note(const std::string& iName, const std::string& iNote);

    /// Takes the bar away.
    void ClearBar();

private:
    void DrawBar(double iFilesDone, const std::string& iName);
    void Complain(const char* iKind, const std::string& iName, const std::string& iText);

    bool _onTerminal;
    std::size_t _nFiles;
    std::size_t _nStarted = 0;
    bool _barShown = false;
};

/// Columns of text under a heading, each as wide as it needs.
class Table {
public:
    explicit Table(std::vector<std::string> iHeading) : _rows{std::move(iHeading)} {}

    void AddRow(std::vector<std::string> iCells) { _rows.push_back(std::move(iCells)); }

    /// Prints to the standard output: the first column to the left, the others to the right.
    void Print() const;

private:
    std::vector<std::vector<std::string>> _rows;  ///< the heading first; all of one length
};

/// Text with control characters taken out, so that a hostile name can't steer a terminal.
std::string Printable(const std::string& iText);

#endif
