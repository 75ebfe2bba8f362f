#ifndef FileQueue_h
#define FileQueue_h

#include "InputFiles.h"

#include <cstddef>
#include <map>
#include <vector>

/// Files that follow on each other in the input, by their numbers from 0.
struct FileRun {
    std::size_t first;
    std::size_t end;  ///< after the last one

    std::size_t Size() const { return end - first; }
};

/// The files that wait for their import. Small ones go to a child by the dozen, or starting it
/// would cost more than reading them; what a child has left undone comes back.
class FileQueue {
public:
    FileQueue(const std::vector<InputFile>& iFiles, unsigned int iProcesses)
        : _files(iFiles), _nProcesses(iProcesses) {}

    bool IsEmpty() const { return _returned.empty() && _nTaken == _files.size(); }

    /// Number of the first file that waits. There must be one.
    std::size_t First() const { return _returned.empty() ? _nTaken : _returned.begin()->first; }

    /// Takes the first files: as many as leave enough for the other processes. One that can't be
    /// read comes alone.
    FileRun Take();

    /// @param iRun  may be empty
    void GiveBack(const FileRun& iRun);

private:
    FileRun NextRun() const;

    const std::vector<InputFile>& _files;
    unsigned int _nProcesses;
    std::size_t _nTaken = 0;                       ///< once or more
    std::map<std::size_t, std::size_t> _returned;  ///< first and end of runs
};

#endif
