#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace boost::interprocess {
class mapped_region;
}

namespace NerioSwitchApi {

/**
 * A file that is memory: mapped for reading and writing and shared, so that what a process stored is in the
 * file even if the process is killed at the next instruction. Nothing waits for the disk: the file is to
 * survive processes, not power cuts. Its size is fixed when it is made.
 *
 * Every failure throws `Belmo::ResourceException` with the path and the reason.
 */
class BELMO_EXPORT MappedFile {
public:
    /** Sets the first contents of a file, which is all zeros until then. */
    using Fill = std::function<void(std::span<std::byte> bytes)>;

    /**
     * Makes a file of `size` bytes, more than none, for its owner alone, in place of what was there. Its
     * room is allocated at once, so that a full disk is an error here and never a signal later. The file
     * takes its name when it is filled: who is killed before leaves none, or the one that was there.
     *
     * One at a time may make a file of that path; a `FileLock` sees to that.
     */
    static MappedFile create(Belmo::String const& path, std::size_t size, Fill const& fill);

    /** Maps a file that is there. It has to be a regular file that only its owner may touch. */
    static MappedFile open(Belmo::String const& path);

    MappedFile(MappedFile&&) noexcept;
    MappedFile& operator=(MappedFile&&) noexcept;
    ~MappedFile();

    Belmo::String const& path() const { return path_; }
    /** The whole file. It stays where it is as long as this object, or the one it is moved to, lives. */
    std::span<std::byte> bytes() const;

private:
    MappedFile(Belmo::String path, int descriptor, std::size_t size);

    Belmo::String path_;
    std::unique_ptr<boost::interprocess::mapped_region> region_;  // none for an empty file
};

}  // namespace NerioSwitchApi
