#include "NerioSwitchApi/CheckedFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <utility>
#include <xxhash.h>

#include "NerioSwitchApi/FileDescriptor.h"

namespace NerioSwitchApi {

namespace {

constexpr std::size_t magicSize = 8;
constexpr std::size_t alignment = 64;

/** As it lies in the file, in the byte order of the machine. The description follows, padded with zeros. */
struct Head {
    static constexpr U32 thisByteOrder = 0x01020304;
    static constexpr U32 otherByteOrder = 0x04030201;

    char magic[magicSize];
    U32 byteOrder;
    U32 version;
    U64 headSize;
    U64 checksum;
};
static_assert(sizeof(Head) == 32);

std::size_t headSizeFor(Belmo::String const& description) {
    return (sizeof(Head) + description.size() + alignment - 1) / alignment * alignment;
}

/** Over the whole head but the checksum itself. */
U64 checksumOf(std::span<std::byte const> head) {
    U64 const seed = XXH3_64bits(head.data(), offsetof(Head, checksum));
    return XXH3_64bits_withSeed(head.data() + sizeof(Head), head.size() - sizeof(Head), seed);
}

void writeHead(FileFormat const& format, Belmo::String const& description, std::span<std::byte> bytes) {
    Head head{{}, Head::thisByteOrder, format.version, bytes.size(), 0};
    std::memcpy(head.magic, format.magic.data(), magicSize);
    std::memcpy(bytes.data(), &head, sizeof(head));
    std::memcpy(bytes.data() + sizeof(head), description.data(), description.size());
    head.checksum = checksumOf(bytes);
    std::memcpy(bytes.data() + offsetof(Head, checksum), &head.checksum, sizeof(head.checksum));
}

std::string_view textIn(std::span<std::byte const> bytes) {
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

/** Whether a file can be of that kind by its first bytes; one that is cut within them still counts. */
bool beginsAs(FileFormat const& format, std::span<std::byte const> bytes) {
    return format.magic.starts_with(textIn(bytes.first(std::min(bytes.size(), magicSize))));
}

Belmo::String reasonNotOfKind(FileFormat const& format) {
    return fmt::format("is not a {}", format.name);
}

/** Removes the file of that kind at that path, if there is one. */
void removeOld(FileFormat const& format, Belmo::String const& path) {
    FileDescriptor const file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!file.isOpen()) {
        if (errno == ENOENT) return;
        throw systemFailure("cannot open", path, errno);
    }
    struct stat status {};
    std::array<std::byte, magicSize> found{};
    ssize_t size = -1;
    if (::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode))
        size = ::pread(file.number(), found.data(), found.size(), 0);
    if (size < 0 || !beginsAs(format, std::span(found).first(static_cast<std::size_t>(size))))
        throw Belmo::ResourceException(path + " " + reasonNotOfKind(format));
    if (::unlink(path.c_str()) != 0) throw systemFailure("cannot remove", path, errno);
}

Belmo::String reasonTooShort(std::size_t size, std::size_t expected) {
    return fmt::format("is too short: {} bytes of {}", size, expected);
}

/** What is wrong with a file that is to have this head and that size; empty if nothing is. */
Belmo::String fault(FileFormat const& format, Belmo::String const& description, std::size_t fileSize,
                    std::span<std::byte const> bytes) {
    if (!beginsAs(format, bytes)) return reasonNotOfKind(format);
    if (bytes.size() < sizeof(Head)) return reasonTooShort(bytes.size(), fileSize);
    Head head;
    std::memcpy(&head, bytes.data(), sizeof(head));
    if (head.byteOrder == Head::otherByteOrder) return "has the other byte order";
    if (head.byteOrder != Head::thisByteOrder) return "is damaged: no byte order in its head";
    if (head.version != format.version) {
        return fmt::format("was written by {} version (found {}, this is {})",
                           head.version > format.version ? "a newer" : "an older", head.version,
                           format.version);
    }
    if (head.headSize < sizeof(Head) || head.headSize % alignment != 0)
        return "is damaged: wrong size of its head";
    if (bytes.size() < head.headSize) return reasonTooShort(bytes.size(), head.headSize);
    if (head.checksum != checksumOf(bytes.first(head.headSize)))
        return "is damaged: wrong checksum of its head";

    auto found = textIn(bytes.first(head.headSize).subspan(sizeof(Head)));
    found = found.substr(0, found.find_last_not_of('\0') + 1);
    if (found != description)
        return fmt::format("has other {}: found {}, this is {}", format.holds, found, description);
    if (bytes.size() < fileSize) return reasonTooShort(bytes.size(), fileSize);
    if (bytes.size() > fileSize) return fmt::format("is damaged: {} bytes, not {}", bytes.size(), fileSize);
    return {};
}

}  // namespace

CheckedFile::CheckedFile(MappedFile file, std::size_t headSize)
    : file_(std::move(file)), headSize_(headSize) {}

CheckedFile CheckedFile::create(FileFormat const& format, Belmo::String const& path,
                                Belmo::String const& description, std::size_t contentSize,
                                MappedFile::Fill const& fill) {
    removeOld(format, path);
    std::size_t const headSize = headSizeFor(description);
    auto const fillAll = [&](std::span<std::byte> bytes) {
        writeHead(format, description, bytes.first(headSize));
        if (fill) fill(bytes.subspan(headSize));
    };
    return CheckedFile(MappedFile::create(path, headSize + contentSize, fillAll), headSize);
}

CheckedFile CheckedFile::open(FileFormat const& format, Belmo::String const& path,
                              Belmo::String const& description, std::size_t contentSize) {
    MappedFile file = MappedFile::open(path);
    std::size_t const headSize = headSizeFor(description);
    Belmo::String const reason = fault(format, description, headSize + contentSize, file.bytes());
    if (!reason.empty()) throw Belmo::ResourceException(path + " " + reason);
    return CheckedFile(std::move(file), headSize);
}

}  // namespace NerioSwitchApi
