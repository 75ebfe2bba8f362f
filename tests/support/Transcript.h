#ifndef Transcript_h
#define Transcript_h

#include "TraceRecorder.h"

#include "IDX_Bool.h"

#include <string>

/// What the operations of one test gave and traced. When the test ends, it must be what stands in
/// tests/golden/failures, in the file of its suite: a line for each operation, and one for each line of the trace.
///
///     [Test]
///     file.ReadAt(6, bytes, 0): false
///       IDX_WT_MemFile.ReadAt.Offset overflow: iOffset 6, iDataSize 0, m_writtenSize 5
class Transcript {
public:
    /// @param hidden  a path that differs from run to run: the transcript has "DIR" in its place
    explicit Transcript(std::string hidden = {});
    ~Transcript();
    Transcript(const Transcript&) = delete;
    Transcript& operator=(const Transcript&) = delete;

    /// Adds an operation with its result, and what was traced since the last one.
    IDX_Bool Note(const std::string& operation, IDX_Bool result);
    long int Note(const std::string& operation, long int result);

    /// Adds a line of its own: what the operations below it have in common.
    void Title(const std::string& text);

private:
    void Add(const std::string& operation, const std::string& result);

    std::string _hidden;
    std::string _text;
    TraceRecorder _trace;
};

/// Calls an operation and adds it to a transcript as it stands in the source.
#define NOTE(transcript, call) (transcript).Note(#call, call)

#endif
