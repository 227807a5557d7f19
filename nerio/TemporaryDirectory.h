#pragma once

#include <filesystem>
#include <string>

namespace Nerio {

/**
 * A directory of its own under the system's temporary directory, gone with this object, or when the process
 * is interrupted.
 */
class TemporaryDirectory {
public:
    /** Throws `Belmo::ResourceException`. */
    explicit TemporaryDirectory(std::string const& prefix);
    ~TemporaryDirectory();
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/** Those that there are, for good: the process is about to end. */
void removeTemporaryDirectories();

}  // namespace Nerio
