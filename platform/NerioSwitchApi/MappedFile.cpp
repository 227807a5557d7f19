#include "NerioSwitchApi/MappedFile.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

#include "NerioSwitchApi/FileDescriptor.h"
#include "NerioSwitchApi/MappedRegion.h"

namespace NerioSwitchApi {

namespace {

constexpr mode_t ownerOnly = S_IRUSR | S_IWUSR;

void allocate(FileDescriptor const& file, Belmo::String const& path, std::size_t size) {
    int error = EINTR;
    while (error == EINTR)
        error = ::posix_fallocate(file.number(), 0, static_cast<off_t>(size));
    if (error != 0) throw systemFailure("cannot allocate", path, error);
}

}  // namespace

Belmo::ResourceException systemFailure(char const* attempt, Belmo::String const& path, int error) {
    return Belmo::ResourceException(
        fmt::format("{} {}: {}", attempt, path, std::generic_category().message(error)));
}

MappedFile::MappedFile(Belmo::String path, int descriptor, std::size_t size)
    : path_(std::move(path)), region_(mappedRegion(descriptor, path_, 0, size)) {}

MappedFile::MappedFile(MappedFile&&) noexcept = default;
MappedFile& MappedFile::operator=(MappedFile&&) noexcept = default;
MappedFile::~MappedFile() = default;

MappedFile MappedFile::create(Belmo::String const& path, std::size_t size, Fill const& fill) {
    // The temporary has one name, so that one left by a killed process goes with the next creation.
    Belmo::String const temporary = path + ".new";
    ::unlink(temporary.c_str());
    FileDescriptor const file(::open(temporary.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, ownerOnly));
    if (!file.isOpen()) throw systemFailure("cannot make", temporary, errno);
    try {
        allocate(file, path, size);
        MappedFile made(path, file.number(), size);
        fill(made.bytes());
        if (::rename(temporary.c_str(), path.c_str()) != 0) throw systemFailure("cannot make", path, errno);
        return made;
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
}

MappedFile MappedFile::open(Belmo::String const& path) {
    FileDescriptor const file(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) throw systemFailure("cannot open", path, errno);
    struct stat status {};
    if (::fstat(file.number(), &status) != 0) throw systemFailure("cannot open", path, errno);
    if (!S_ISREG(status.st_mode)) throw Belmo::ResourceException(path + " is not a regular file");
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        throw Belmo::ResourceException(fmt::format("{} is open to others than its owner (mode {:04o})", path,
                                                   status.st_mode & ALLPERMS));
    }
    return MappedFile(path, file.number(), static_cast<std::size_t>(status.st_size));
}

std::span<std::byte> MappedFile::bytes() const {
    if (!region_) return {};
    return {static_cast<std::byte*>(region_->get_address()), region_->get_size()};
}

}  // namespace NerioSwitchApi
