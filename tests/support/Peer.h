#ifndef Peer_h
#define Peer_h

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

/// A child process that does one step at each request, and then waits for the next.
class Peer {
public:
    /// @param work  does a step in the child; false when something isn't as it should be
    /// @param exits  the child ends as a program does, and closes its files; else at once
    explicit Peer(const std::function<bool(char)>& work, bool exits = true) {
        std::fflush(nullptr);
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, _ends) != 0) std::abort();
        _child = fork();
        close(_ends[_child == 0 ? 0 : 1]);
        if (_child != 0) return;
        char step = 0;
        while (TEMP_FAILURE_RETRY(read(_ends[1], &step, 1)) == 1) {
            const char good = work(step);
            if (write(_ends[1], &good, 1) != 1) break;
        }
        if (exits) std::exit(0);
        _exit(0);
    }
    ~Peer() { End(); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    /// Has the child do a step, and waits until it is done.
    bool Do(char step) {
        char good = 0;
        // A signal, such as the fuzzing engine's clock, may come in between.
        return TEMP_FAILURE_RETRY(write(_ends[0], &step, 1)) == 1 &&
               TEMP_FAILURE_RETRY(read(_ends[0], &good, 1)) == 1 && good != 0;
    }

    /// Has the child end and waits for it; gives its exit status.
    int End() {
        if (_child > 0) {
            close(_ends[0]);
            (void)TEMP_FAILURE_RETRY(waitpid(_child, &_status, 0));
            _child = 0;
        }
        return _status;
    }

private:
    int _ends[2];
    pid_t _child;
    int _status = 0;
};

#endif
