#include "Interrupt.h"

#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

constexpr std::time_t kUrgentAfter = 1;  // seconds: one request may come as several signals at once

volatile std::sig_atomic_t isRequested = 0;
volatile std::time_t requestedAt = 0;
int wakeUp[2] = {-1, -1};  // a pipe, so that poll() sees a request that comes just before it

void NoteSignal(int) {
    const std::time_t now = std::time(nullptr);
    if (isRequested != 0 && now > requestedAt + kUrgentAfter)
        _exit(NumberOf(ExitCode::Interrupted));
    if (isRequested == 0) requestedAt = now;
    isRequested = 1;
    (void)!write(wakeUp[1], "", 1);
}

}  // namespace

void ListenForInterrupts() {
    (void)pipe2(wakeUp, O_CLOEXEC | O_NONBLOCK);  // without it a request is seen a little later
    (void)std::signal(SIGPIPE, SIG_IGN);
    (void)std::signal(SIGXFSZ, SIG_IGN);
    struct sigaction action = {};
    action.sa_handler = NoteSignal;
    action.sa_flags = SA_RESTART;
    for (const int signal : kSignals) {
        struct sigaction before = {};
        const bool isIgnored =
            sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN;
        if (!isIgnored) (void)sigaction(signal, &action, nullptr);
    }
}

bool IsInterrupted() {
    return isRequested != 0;
}

int InterruptDescriptor() {
    return wakeUp[0];
}

void IgnoreInterrupts() {
    for (const int signal : kSignals) (void)std::signal(signal, SIG_IGN);
}
