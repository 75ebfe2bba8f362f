#ifndef TraceOutput_h
#define TraceOutput_h

#include <string>

// Where the library's trace goes in a tool. Lines for the operator go to the standard error;
// failure tags only when all of the trace is shown. The latest tag is kept, as the cause of a
// failure that just came back.

/// Sends the trace there, for the rest of the process and in its children.
/// @param iAll  show failure tags too
void RouteTraceToConsole(bool iAll);

bool IsTraceShown();

/// The latest failure tag, which is the outermost of its chain; empty when there is none.
const std::string& LatestTag();

/// Notes whether the library traces one tag while the object lives. This is for what the library
/// says in no other way. One object at a time, after RouteTraceToConsole().
class TagWatch {
public:
    /// @param iTag  must outlive the object
    explicit TagWatch(const char* iTag);
    TagWatch(const TagWatch&) = delete;
    TagWatch& operator=(const TagWatch&) = delete;
    ~TagWatch();

    bool IsSeen() const { return _isSeen; }

    /// Called for every line.
    void Compare(const char* iLine);

private:
    const char* _tag;
    bool _isSeen = false;
};

/// Lines for the operator are left out while an object lives, unless all of the trace is shown.
class TraceSilence {
public:
    TraceSilence();
    TraceSilence(const TraceSilence&) = delete;
    TraceSilence& operator=(const TraceSilence&) = delete;
    ~TraceSilence();
};

#endif
