#include "NerioSwitchApi/FileLock.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "Belmo/Exceptions.h"

namespace NerioSwitchApi {

namespace {

/** The process that a lock file names; 0 if it names none. */
pid_t holder(FileDescriptor const& file) {
    std::array<char, 32> text{};
    ssize_t const length = ::pread(file.number(), text.data(), text.size(), 0);
    pid_t process = 0;
    if (length > 0) std::from_chars(text.data(), text.data() + length, process);
    return process;
}

/** Names this process in the file. That is a courtesy: a full disk does not keep anyone from the lock. */
void holderIs(FileDescriptor const& file, pid_t process) {
    Belmo::String const text = fmt::format("{}\n", process);
    [[maybe_unused]] bool const told =
        ::ftruncate(file.number(), 0) == 0 && ::pwrite(file.number(), text.data(), text.size(), 0) > 0;
}

}  // namespace

FileLock::FileLock(Belmo::String const& path)
    : file_(::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR)) {
    if (!file_.isOpen()) throw systemFailure("cannot open", path, errno);
    if (::flock(file_.number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK) throw systemFailure("cannot lock", path, errno);
        pid_t const process = holder(file_);
        throw Belmo::ResourceException(
            path + (process > 0 ? fmt::format(" is held by process {}", process) : " is held by another"));
    }
    holderIs(file_, ::getpid());
}

}  // namespace NerioSwitchApi
