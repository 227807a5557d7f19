#include "nerio/FileToBe.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Belmo/Exceptions.h"

namespace Nerio {

FileToBe::FileToBe(std::string path) : path_(std::move(path)), temporary_(path_ + ".XXXXXX") {
    struct stat there {};
    if (::stat(path_.c_str(), &there) == 0 && !S_ISREG(there.st_mode))
        fail(S_ISDIR(there.st_mode) ? EISDIR : EINVAL);
    descriptor_ = ::mkstemp(temporary_.data());
    if (descriptor_ < 0) fail(errno);
}

FileToBe::~FileToBe() {
    if (descriptor_ < 0) return;
    ::close(descriptor_);
    ::unlink(temporary_.c_str());
}

void FileToBe::textIs(std::string_view text) {
    while (!text.empty()) {
        auto const count = ::write(descriptor_, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(errno);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    auto const mask = ::umask(0);
    ::umask(mask);
    if (::fchmod(descriptor_, 0666 & ~mask) != 0 || ::fsync(descriptor_) != 0) fail(errno);
    if (::rename(temporary_.c_str(), path_.c_str()) != 0) fail(errno);
    ::close(std::exchange(descriptor_, -1));
}

void FileToBe::fail(int error) const {
    throw Belmo::ResourceException(fmt::format("{}: cannot be written: {}", path_, std::strerror(error)));
}

}  // namespace Nerio
