#ifndef ChildProcess_h
#define ChildProcess_h

#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <sys/types.h>

/// Where a child hands its messages over.
class Outlet {
public:
    explicit Outlet(int iPipe) : _pipe(iPipe) {}

    /// Waits until the parent has taken the bytes up. Ends the child when nobody does any more.
    void Send(const std::string& iMessage) const;

private:
    int _pipe;
};

/// A forked child that does a piece of work in a copy of our memory and hands messages back through a pipe. What
/// crashes, hangs or runs out of memory there is gone with the child. The calling process has one thread only.
///
/// The child has no open file but the pipe, writes nothing to the console, leaves interrupts to the parent, and dies
/// with it. An object that goes ends its child.
class ChildProcess {
public:
    using Work = std::function<void(const Outlet&)>;

    ChildProcess() = default;
    ChildProcess(ChildProcess&& ioOther) noexcept;
    ChildProcess& operator=(ChildProcess&& ioOther) noexcept;
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    /// @return empty, or why there is no child
    std::string Start(const Work& iWork);

    /// For poll(); -1 when there is no child.
    int Pipe() const { return _pipe; }

    /// Reads a piece of what the child has sent, when poll() says that there is something.
    /// @return false when the child has ended, or sends what can't be a message
    bool Receive();

    /// The next whole message, in the order of sending; false when there is none yet.
    bool TakeMessage(std::string& oMessage);

    /// Ends the child if it still lives.
    /// @return its status as waitpid() tells it
    int End();

private:
    bool TakeHeader(const char*& ioBytes, const char* iEnd);
    void TakeContent(const char*& ioBytes, const char* iEnd);

    pid_t _child = -1;
    int _pipe = -1;
    std::string _header;                ///< of the message that is coming, as far as it has come
    std::string _message;               ///< that message, as far as it has come
    std::deque<std::string> _messages;  ///< whole ones that aren't taken yet
};

// In the child, before it does what may go wrong.

/// Limits the address space.
void LimitMemory(unsigned int iMiB);

/// Limits what comes from now on: processor time, and ten times as long on the clock.
void LimitTime(unsigned int iSeconds);

/// Takes the limit on the clock away: from here on the child waits for the parent.
void EndTimeLimit();

/// Ends the child for want of memory.
[[noreturn]] void EndWithoutMemory();

/// Why a child ended too early: "crashed: ...", "was stopped: ...", "ran out of memory".
/// @param iStatus   as End() gives it
/// @param iSeconds  as LimitTime() was told
std::string ReasonOfDeath(int iStatus, unsigned int iSeconds);

#endif
