#include "ImportProcess.h"

#include "MeshImport.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <type_traits>
#include <unistd.h>

namespace {

// The two ends of the pipe are the same program: values travel as they lie in memory, in the order
// failure, notes, parts; a list is its length, then its elements.

template <typename T>
void Put(std::FILE* iPipe, const T& iValue) {
    static_assert(std::is_trivially_copyable_v<T>);
    // A write that fails shows at the other end, as an import that ended too early.
    (void)std::fwrite(&iValue, sizeof iValue, 1, iPipe);
}

template <typename List>
void PutList(std::FILE* iPipe, const List& iList) {
    Put(iPipe, static_cast<std::uint64_t>(iList.size()));
    if (iList.empty()) return;  // there may be no data to point at
    (void)std::fwrite(iList.data(), sizeof(typename List::value_type), iList.size(), iPipe);
}

void PutFile(std::FILE* iPipe, const ImportedFile& iFile) {
    PutList(iPipe, iFile.failure);
    Put(iPipe, static_cast<std::uint64_t>(iFile.notes.size()));
    for (const std::string& note : iFile.notes) PutList(iPipe, note);
    Put(iPipe, static_cast<std::uint64_t>(iFile.parts.size()));
    for (const MeshPart& part : iFile.parts) {
        PutList(iPipe, part.nodeName);
        PutList(iPipe, part.points);
        PutList(iPipe, part.triangles);
        Put(iPipe, part.nSkipped);
    }
}

template <typename T>
bool Get(std::FILE* iPipe, T& oValue) {
    return std::fread(&oValue, sizeof oValue, 1, iPipe) == 1;
}

bool GetCount(std::FILE* iPipe, std::size_t& oCount) {
    std::uint64_t count = 0;
    if (!Get(iPipe, count)) return false;
    oCount = static_cast<std::size_t>(count);
    return true;
}

template <typename List>
bool GetList(std::FILE* iPipe, List& oList) {
    std::size_t count = 0;
    if (!GetCount(iPipe, count)) return false;
    oList.resize(count);
    if (count == 0) return true;
    return std::fread(oList.data(), sizeof(typename List::value_type), count, iPipe) == count;
}

bool GetPart(std::FILE* iPipe, MeshPart& oPart) {
    return GetList(iPipe, oPart.nodeName) && GetList(iPipe, oPart.points) &&
           GetList(iPipe, oPart.triangles) && Get(iPipe, oPart.nSkipped);
}

bool GetFile(std::FILE* iPipe, ImportedFile& oFile) {
    std::size_t count = 0;
    if (!GetList(iPipe, oFile.failure) || !GetCount(iPipe, count)) return false;
    for (; count > 0; --count) {
        if (!GetList(iPipe, oFile.notes.emplace_back())) return false;
    }
    if (!GetCount(iPipe, count)) return false;
    for (; count > 0; --count) {
        if (!GetPart(iPipe, oFile.parts.emplace_back())) return false;
    }
    return true;
}

/// Without the limit the import still works.
void SetLimit(__rlimit_resource iResource, rlim_t iLimit) {
    const rlimit limit = {iLimit, iLimit + 1};  // the lower tells of itself, the higher kills
    (void)setrlimit(iResource, &limit);
}

/// The child's whole life. What the C library says about a crash is left out: the parent names it.
[[noreturn]] void RunChild(int iPipe, const std::string& iPath, const ImportLimits& iLimits) {
    SetLimit(RLIMIT_CORE, 0);
    SetLimit(RLIMIT_CPU, iLimits.seconds);
#ifndef GRIDLOOM_SANITIZED  // a sanitizer maps its shadow memory and reports on the standard error
    SetLimit(RLIMIT_AS, rlim_t{iLimits.memoryMiB} << 20U);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere >= 0) (void)dup2(nowhere, STDERR_FILENO);
#endif
    std::FILE* pipe = fdopen(iPipe, "wb");
    if (pipe == nullptr) _exit(1);
    PutFile(pipe, ImportMeshFile(iPath));
    _exit(std::fclose(pipe) == 0 ? 0 : 1);
}

/// Why a child ended without handing its result over.
std::string ReasonOfDeath(int iStatus, const ImportLimits& iLimits) {
    if (!WIFSIGNALED(iStatus)) return "the import ended early";
    const int signal = WTERMSIG(iStatus);
    if (signal == SIGXCPU) {
        return "the import was stopped: it may use " + std::to_string(iLimits.seconds) +
               " s of processor time";
    }
    return std::string("the importer crashed on it: ") + strsignal(signal);
}

ImportedFile Refused(const std::string& iReason) {
    ImportedFile file;
    file.failure = iReason;
    return file;
}

/// Takes the result over and waits for the child's end.
ImportedFile Receive(int iPipe, pid_t iChild, const ImportLimits& iLimits) {
    ImportedFile file;
    std::FILE* pipe = fdopen(iPipe, "rb");
    const bool complete = pipe != nullptr && GetFile(pipe, file);
    if (pipe != nullptr) std::fclose(pipe);
    int status = 0;
    while (waitpid(iChild, &status, 0) < 0 && errno == EINTR) {
    }
    return complete && status == 0 ? std::move(file) : Refused(ReasonOfDeath(status, iLimits));
}

}  // namespace

ImportedFile ImportInChild(const std::string& iPath, const ImportLimits& iLimits) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return Refused(std::strerror(errno));
    std::fflush(nullptr);  // so that the child has nothing of ours to write
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        RunChild(ends[1], iPath, iLimits);
    }
    const int error = errno;
    close(ends[1]);
    if (child > 0) return Receive(ends[0], child, iLimits);
    close(ends[0]);
    return Refused(std::string("no process for the import: ") + std::strerror(error));
}
