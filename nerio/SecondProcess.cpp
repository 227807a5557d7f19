#include "nerio/SecondProcess.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Belmo/Exceptions.h"

namespace Nerio {

namespace {

[[noreturn]] void fail(int error) {
    throw Belmo::ResourceException(std::string("cannot start a second process: ") + std::strerror(error));
}

std::string readAll(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer;
    for (;;) {
        auto const count = ::read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

}  // namespace

ProcessResult runSelf(std::vector<std::string> const& arguments) {
    std::string program = "/proc/self/exe";
    std::vector<std::string> held = arguments;
    std::vector<char*> argv{program.data()};
    for (auto& argument : held)
        argv.push_back(argument.data());
    argv.push_back(nullptr);

    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) fail(errno);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    pid_t child = 0;
    int const error = ::posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    if (error != 0) {
        ::close(ends[0]);
        fail(error);
    }
    ProcessResult result;
    result.output = readAll(ends[0]);
    ::close(ends[0]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

}  // namespace Nerio
