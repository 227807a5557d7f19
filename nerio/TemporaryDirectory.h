#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "Belmo/Exceptions.h"

namespace Nerio {

/** A directory of its own under the system's temporary directory, gone with this object. */
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(std::string const& prefix) {
        auto name = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
        if (::mkdtemp(name.data()) == nullptr) throw Belmo::ResourceException(name + ": cannot be made");
        path_ = name;
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    std::filesystem::path const& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace Nerio
