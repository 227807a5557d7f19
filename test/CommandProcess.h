#pragma once

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "BuildUnderTest.h"
#include "TemporaryDirectory.h"

namespace NerioTest {

/** The command `nerio` in a process of its own, spoken to through pipes. */
class CommandProcess {
public:
    explicit CommandProcess(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), nerioCommand);
        std::vector<char*> argv;
        for (auto& argument : arguments)
            argv.push_back(argument.data());
        argv.push_back(nullptr);
        auto const errors = scratch_.path("stderr");
        int in[2];
        int out[2];
        if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
        process_ = ::fork();
        if (process_ < 0) throw std::runtime_error("cannot fork");
        if (process_ == 0) {
            int const error = ::open(errors.c_str(), O_CREAT | O_WRONLY, 0600);
            ::dup2(in[0], STDIN_FILENO);
            ::dup2(out[1], STDOUT_FILENO);
            ::dup2(error, STDERR_FILENO);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        input_ = in[1];
        output_ = out[0];
    }
    ~CommandProcess() {
        if (process_ > 0) ::kill(process_, SIGKILL);
        ended();
    }
    CommandProcess(CommandProcess const&) = delete;
    CommandProcess& operator=(CommandProcess const&) = delete;

    void write(std::string const& text) {
        if (::write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
            throw std::runtime_error("the command takes no input");
    }
    /** The next line of standard output; waits for it, and throws at the end. */
    std::string readLine() {
        for (;;) {
            if (auto const end = pending_.find('\n'); end != std::string::npos) {
                auto const line = pending_.substr(0, end);
                pending_.erase(0, end + 1);
                return line;
            }
            if (!readMore()) throw std::runtime_error("no further line; standard error: " + errors());
        }
    }
    /** Closes its input and waits: the exit status, or the number of the signal that ended it with a minus.
     */
    int ended() {
        if (input_ >= 0) ::close(input_);
        input_ = -1;
        if (output_ >= 0) {
            while (readMore()) {
            }
            ::close(output_);
            output_ = -1;
        }
        if (process_ > 0) {
            int status = 0;
            ::waitpid(process_, &status, 0);
            process_ = 0;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return status_;
    }
    pid_t process() const { return process_; }
    /** What it wrote on standard output and was not read yet. */
    std::string const& output() const { return pending_; }
    std::string errors() const { return contentsOf(scratch_.path("stderr")); }

private:
    bool readMore() {
        char buffer[4096];
        auto const count = ::read(output_, buffer, sizeof(buffer));
        if (count > 0) pending_.append(buffer, static_cast<std::size_t>(count));
        return count > 0;
    }

    TemporaryDirectory scratch_;
    pid_t process_ = 0;
    int input_ = -1;
    int output_ = -1;
    int status_ = 255;
    std::string pending_;
};

/** A run of the command from its start to its end. */
struct CommandResult {
    int status;
    std::string output;
    std::string errors;
};

inline CommandResult runCommand(std::vector<std::string> arguments, std::string const& input = {}) {
    CommandProcess command(std::move(arguments));
    if (!input.empty()) command.write(input);
    int const status = command.ended();
    return {status, command.output(), command.errors()};
}

inline std::ptrdiff_t lineCount(std::string const& text) {
    return std::count(text.begin(), text.end(), '\n');
}

}  // namespace NerioTest
