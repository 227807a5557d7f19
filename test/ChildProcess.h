#pragma once

#include <csignal>
#include <functional>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

/** A forked copy of the test that does one thing and ends, without the ends of the test around it. */
class ChildProcess {
public:
    /** Runs `work` in a child, which exits with what it returns, or with 255 if it throws. */
    explicit ChildProcess(std::function<int()> const& work) : process_(::fork()) {
        if (process_ < 0) throw std::runtime_error("cannot fork");
        if (process_ > 0) return;
        int status = 255;
        try {
            status = work();
        } catch (...) {
        }
        ::_exit(status);
    }
    ~ChildProcess() {
        if (process_ > 0) ::kill(process_, SIGKILL);
        ended();
    }
    ChildProcess(ChildProcess const&) = delete;
    ChildProcess& operator=(ChildProcess const&) = delete;

    pid_t process() const { return process_; }

    /** Waits for its end: the exit status, or the number of the signal that ended it with a minus. */
    int ended() {
        int status = 0;
        if (process_ <= 0 || ::waitpid(process_, &status, 0) != process_) return 255;
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }

private:
    pid_t process_;
};
