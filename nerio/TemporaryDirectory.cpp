#include "nerio/TemporaryDirectory.h"

#include <cstdlib>
#include <mutex>
#include <set>
#include <system_error>

#include "Belmo/Exceptions.h"

namespace Nerio {

namespace {

struct Directories {
    std::mutex mutex;
    std::set<std::filesystem::path> paths;
};

Directories& directories() {
    static auto* const all = new Directories;  // outlives whatever the process does while it ends
    return *all;
}

}  // namespace

TemporaryDirectory::TemporaryDirectory(std::string const& prefix) {
    std::lock_guard const lock(directories().mutex);
    auto name = (std::filesystem::temp_directory_path() / (prefix + "-XXXXXX")).string();
    if (::mkdtemp(name.data()) == nullptr) throw Belmo::ResourceException(name + ": cannot be made");
    path_ = name;
    directories().paths.insert(path_);
}

TemporaryDirectory::~TemporaryDirectory() {
    std::lock_guard const lock(directories().mutex);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
    directories().paths.erase(path_);
}

void removeTemporaryDirectories() {
    std::lock_guard const lock(directories().mutex);
    std::error_code ignored;
    for (auto const& path : directories().paths)
        std::filesystem::remove_all(path, ignored);
}

}  // namespace Nerio
