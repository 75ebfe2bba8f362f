#ifndef ChildProcess_h
#define ChildProcess_h

#include "Status.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <sys/types.h>

/// Where a child sends its messages.
class Outlet {
public:
    explicit Outlet(int iPipe) : _pipe(iPipe) {}

    /// Waits until the parent has read what the pipe can't hold. Ends the child when the parent has
    /// gone.
    void Send(const std::string& iMessage) const;

private:
    int _pipe;
};

/// How a child process ended.
struct ChildEnd {
    enum Cause {
        Done,           ///< all its work, or there was no child
        Early,          ///< by itself, before that
        NoMemory,       ///< by EndWithoutMemory()
        ProcessorTime,  ///< by LimitTime(), after as much processor time
        Clock,          ///< by LimitTime(), after as much time on the clock: it hung
        Killed,         ///< by SIGKILL, as when the machine runs out of memory
        Crash,          ///< by any other signal
    };

    Cause cause = Done;
    int signal = 0;  ///< of a crash
};

/// Why a child ended too early, to follow on its name: "crashed: ...", "was stopped: ...".
/// @param iSeconds  as LimitTime() was given
std::string DescribeEnd(const ChildEnd& iEnd, unsigned int iSeconds);

/// A forked child that does a piece of work in a copy of our memory and sends messages back through
/// a pipe. What crashes, hangs or runs out of memory there is gone with the child. The calling
/// process has one thread only.
///
/// The child has no open file but the pipe, writes nothing to the console, leaves interrupts to the
/// parent, and dies with it. The destructor ends the child.
class ChildProcess {
public:
    using Work = std::function<void(const Outlet&)>;

    ChildProcess() = default;
    ChildProcess(ChildProcess&& ioOther) noexcept;
    ChildProcess& operator=(ChildProcess&& ioOther) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// Starts the child. A failure means that the system has no process for it.
    Status Start(const Work& iWork);

    /// For poll(); -1 when there is no child.
    int Pipe() const { return _pipe; }

    /// Reads a piece of what the child has sent, when poll() says that there is something.
    /// @return false when the child has ended, or sends what can't be a message
    bool Receive();

    /// The next whole message, in the order of sending; false when there is none yet.
    bool NextMessage(std::string& oMessage);

    /// Ends the child if it still lives. A child that this call ended counts as Killed.
    ChildEnd End();

private:
    bool AppendHeader(const char*& ioBytes, const char* iEnd);
    void AppendContent(const char*& ioBytes, const char* iEnd);

    pid_t _child = -1;
    int _pipe = -1;
    std::string _header;                ///< of the message that is coming, as far as it has come
    std::string _message;               ///< that message, as far as it has come
    std::deque<std::string> _messages;  ///< whole ones that NextMessage() hasn't given yet
};

// In the child, before it does what may go wrong.

/// Limits the address space.
void LimitMemory(unsigned int iMiB);

/// Limits what comes from now on: processor time, and ten times as long on the clock.
void LimitTime(unsigned int iSeconds);

/// Ends the limit on the clock: from here on the child waits for the parent.
void EndTimeLimit();

/// Ends the child for want of memory.
[[noreturn]] void EndWithoutMemory();

#endif
