#include "NerioSwitchApi/MappedRegisterBus.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <utility>

#include "Belmo/Assert.h"
#include "NerioSwitchApi/MappedRegion.h"

namespace NerioSwitchApi {

namespace {

/** Opens a file or device, for the only bus that holds it. */
FileDescriptor opened(Belmo::String const& path) {
    FileDescriptor file(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_SYNC | O_CLOEXEC));
    if (!file.isOpen()) throw systemFailure("cannot open", path, errno);
    if (::flock(file.number(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) throw Belmo::ResourceException(path + " is in use by another");
        throw systemFailure("cannot lock", path, errno);
    }
    return file;
}

/** How many bytes from `base` on there are for a map that reaches over `wanted`. */
U64 sizeBehind(FileDescriptor const& file, Belmo::String const& path, U64 base, U64 wanted) {
    struct stat status {};
    if (::fstat(file.number(), &status) != 0) throw systemFailure("cannot open", path, errno);
    if (S_ISCHR(status.st_mode)) return wanted;
    if (!S_ISREG(status.st_mode)) throw Belmo::ResourceException(path + " is no file to map");
    auto const size = static_cast<U64>(status.st_size);
    if (base > size)
        throw Belmo::ResourceException(
            fmt::format("{} has {} bytes, and ends before {:#x}", path, size, base));
    return size - base;
}

}  // namespace

MappedRegisterBus::MappedRegisterBus(Belmo::String const& file, RegisterMapFile map, U64 base)
    : map_(std::move(map)), file_(opened(file)) {
    if (base % 4 != 0)
        throw Belmo::ResourceException(fmt::format("{}: base {:#x} is not a multiple of 4", file, base));
    map_.fits(sizeBehind(file_, file, base, map_.size()));
    region_ = mappedRegion(file_.number(), file, base, map_.size());
    if (region_) words_ = static_cast<U32 volatile*>(region_->get_address());
    size_ = map_.size() / sizeof(U32);
    for (auto const& it : map_.registers())
        numbers_.emplace(it.path, static_cast<U32>(it.offset / sizeof(U32)));
}

MappedRegisterBus::~MappedRegisterBus() = default;

RegisterHandle MappedRegisterBus::address(std::string_view path) {
    auto const found = numbers_.find(path);
    if (found == numbers_.end()) throw UnknownRegisterException(path);
    return {found->second};
}

Belmo::String MappedRegisterBus::path(RegisterHandle handle) const {
    auto const offset = U64{handle.number} * sizeof(U32);
    auto const found =
        std::ranges::lower_bound(map_.registers(), offset, {}, &RegisterMapFile::Register::offset);
    BELMO_ASSERT(found != map_.registers().end() && found->offset == offset);
    return found->path;
}

U32 MappedRegisterBus::read(RegisterHandle handle) {
    BELMO_ASSERT(handle.number < size_);
    return words_[handle.number];
}

void MappedRegisterBus::write(RegisterHandle handle, U32 word) {
    BELMO_ASSERT(handle.number < size_);
    words_[handle.number] = word;
}

}  // namespace NerioSwitchApi
