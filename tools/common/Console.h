#ifndef Console_h
#define Console_h

#include <cstddef>
#include <string>
#include <vector>

/// How the operator sees a batch run: as a bar that moves on the standard error, or on the standard
/// output as plain lines, or as lines of JSON, one object for each event. Auto stands for one of
/// the others, which the reader of the command line chooses.
enum class ProgressStyle { Auto, Bar, Plain, Json, None };

/// One value of an event: its name, and a text or a number.
struct EventValue {
    EventValue(const char* iName, const std::string& iText) : name(iName), text(iText) {}
    EventValue(const char* iName, double iNumber) : name(iName), number(iNumber), isNumber(true) {}

    const char* name;
    std::string text;
    double number = 0.0;
    bool isNumber = false;
};

/// What the operator sees while a batch runs.
class Console {
public:
    /// @param iTool     the program's name, in front of each message
    /// @param iIsQuiet  leaves notes out
    Console(std::string iTool, ProgressStyle iStyle, bool iIsQuiet);
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;
    ~Console() { ClearBar(); }

    /// Shows how far the run is.
    /// @param iShare  0 to 1
    /// @param iLine   for people, as a line
    /// @param iEvent  for machines; the first value is the kind of the event
    void ShowProgress(
        double iShare, const std::string& iLine, const std::vector<EventValue>& iEvent);

    /// Names what failed, and why.
    void Fail(const std::string& iName, const std::string& iReason);

    /// Names something odd that is no failure.
    void Note(const std::string& iName, const std::string& iNote);

    /// Takes the bar away.
    void ClearBar();

private:
    void DrawBar(double iShare, const std::string& iLine);
    void PrintEvent(const std::vector<EventValue>& iEvent);
    void Complain(const char* iKind, const std::string& iName, const std::string& iText);

    std::string _tool;
    ProgressStyle _style;
    bool _isQuiet;
    bool _barShown = false;
};

/// Columns of text under a heading, each as wide as it needs.
class Table {
public:
    explicit Table(std::vector<std::string> iHeading) : _rows{std::move(iHeading)} {}

    void AddRow(std::vector<std::string> iCells) { _rows.push_back(std::move(iCells)); }
    std::size_t CountRows() const { return _rows.size() - 1; }

    /// Prints to the standard output: the first column to the left, the others to the right.
    void Print() const;

private:
    std::vector<std::vector<std::string>> _rows;  ///< the heading first; all of one length
};

/// Prints a line on the standard error, without control characters: "TOOL: TEXT".
void PrintMessage(const std::string& iTool, const std::string& iText);

/// Text with control characters taken out, so that a hostile name can't steer a terminal.
std::string Printable(const std::string& iText);

#endif
