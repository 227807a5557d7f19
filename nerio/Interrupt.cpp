#include "nerio/Interrupt.h"

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <fmt/format.h>
#include <mutex>
#include <pthread.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include "nerio/TemporaryDirectory.h"

namespace Nerio {

namespace {

struct Words {
    std::mutex mutex;
    bool silent = false;
    std::string text;
    std::string before;
    /** Somebody waits for interrupts, and one has come. */
    bool isAwaited = false;
    bool hasCome = false;
    std::condition_variable come;
};

Words& words() {
    static auto* const all = new Words;  // outlives whatever the process does while it ends
    return *all;
}

sigset_t interrupts() {
    sigset_t signals;
    sigemptyset(&signals);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    return signals;
}

void say() {
    std::lock_guard const lock(words().mutex);
    if (words().silent) return;
    auto const line = fmt::format("{}nerio: interrupted{}\n", words().before, words().text);
    if (::write(STDERR_FILENO, line.data(), line.size()) < 0) return;
}

/** Whether somebody waits for it. */
bool handOver() {
    std::lock_guard const lock(words().mutex);
    words().hasCome = words().isAwaited;
    words().come.notify_all();
    return words().isAwaited;
}

/** Ends the process as if nobody had waited for the signal, so that a shell sees what ended it. */
void waitForInterrupt() {
    auto const signals = interrupts();
    int signal = 0;
    do {
        if (sigwait(&signals, &signal) != 0) return;
    } while (handOver());
    say();
    removeTemporaryDirectories();
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    ::kill(::getpid(), signal);
}

}  // namespace

void interruptsAreSaid() {
    auto const signals = interrupts();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread(waitForInterrupt).detach();
}

void onInterruptSay(std::string text) {
    std::lock_guard const lock(words().mutex);
    words().text = std::move(text);
}

void interruptsAreSilent() {
    std::lock_guard const lock(words().mutex);
    words().silent = true;
}

InterruptWait::InterruptWait() {
    std::lock_guard const lock(words().mutex);
    words().isAwaited = true;
}

InterruptWait::~InterruptWait() {
    std::lock_guard const lock(words().mutex);
    words().isAwaited = false;
}

bool InterruptWait::came(double seconds) const {
    std::unique_lock lock(words().mutex);
    return words().come.wait_for(lock, std::chrono::duration<double>(seconds),
                                 [] { return words().hasCome; });
}

void onInterruptPrint(std::string text) {
    std::lock_guard const lock(words().mutex);
    words().before = std::move(text);
}

}  // namespace Nerio
