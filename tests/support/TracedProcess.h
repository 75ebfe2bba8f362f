#ifndef TracedProcess_h
#define TracedProcess_h

#include <functional>
#include <map>
#include <string>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <vector>

/// Which system calls are meant: those of some kinds. Of opens only those that may write count, or with a path only
/// those of files whose paths end so.
struct CallsOf {
    std::vector<long> kinds;
    std::string path = {};
    bool areOfChildren = false;  ///< those that the process forks, in place of its own
};

/// All that change something on the disk.
extern const CallsOf kChangingCalls;

/// A process that is held where a test wants to meet it: when it or one that it has forked is about to make a call.
/// Nothing here depends on time. All processes die with the object.
class TracedProcess {
public:
    /// @param run  what the new process does; it ends when this returns
    explicit TracedProcess(const std::function<void()>& run);
    TracedProcess(const TracedProcess&) = delete;
    TracedProcess& operator=(const TracedProcess&) = delete;
    ~TracedProcess();

    pid_t Id() const { return _id; }

    /// Lets all go on up to the count-th such call, counted from here and from 1, whose caller is held.
    /// @return the caller; 0 when the process has ended before
    pid_t RunTo(const CallsOf& calls, int count = 1);

    /// Lets all go on to their ends. The one that is held may have to wait for the end of the process.
    /// @return as EndOf() gives it
    int Wait(bool isHeldOn = false);

    /// The exit code of a process that has ended, or minus the signal that ended it.
    int EndOf(pid_t process) const { return _ends.at(process); }

private:
    bool Matches(pid_t caller, const CallsOf& calls) const;
    void Release(__ptrace_request how);
    bool Step(__ptrace_request how, pid_t& stopped);

    pid_t _id;
    pid_t _held;
    std::map<pid_t, int> _ends;
};

#endif
