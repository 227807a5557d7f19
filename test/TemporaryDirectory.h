#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <vector>

/** A directory of its own for one test, which goes with everything in it. */
class TemporaryDirectory {
public:
    TemporaryDirectory() : path_((std::filesystem::temp_directory_path() / "nerio.XXXXXX").string()) {
        if (::mkdtemp(path_.data()) == nullptr) throw std::runtime_error("no temporary directory");
    }
    ~TemporaryDirectory() { std::filesystem::remove_all(path_); }
    TemporaryDirectory(TemporaryDirectory const&) = delete;
    TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;

    std::string const& path() const { return path_; }
    std::string path(std::string const& name) const { return path_ + "/" + name; }

    /** Names of what is in it, sorted. */
    std::vector<std::string> names() const { return namesIn(path_); }

    static std::vector<std::string> namesIn(std::string const& directory) {
        std::vector<std::string> names;
        for (auto const& item : std::filesystem::directory_iterator(directory))
            names.push_back(item.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

private:
    std::string path_;
};

inline std::string contentsOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Sets a whole file, in place, as another program would; one that is new is for its owner only. */
inline void contentsOfIs(std::string const& path, std::string const& contents) {
    namespace fs = std::filesystem;
    if (!fs::exists(path)) {
        std::ofstream const made(path);
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write);
    }
    std::fstream(path, std::ios::binary | std::ios::in | std::ios::out) << contents;
    fs::resize_file(path, contents.size());
}

/** The permissions of a file or directory, as in 0600. */
inline unsigned permissionsOf(std::string const& path) {
    return static_cast<unsigned>(std::filesystem::symlink_status(path).permissions());
}

/** Another mask of permissions, for the time of a test. */
class UmaskGuard {
public:
    explicit UmaskGuard(mode_t mask) : before_(::umask(mask)) {}
    ~UmaskGuard() { ::umask(before_); }
    UmaskGuard(UmaskGuard const&) = delete;
    UmaskGuard& operator=(UmaskGuard const&) = delete;

private:
    mode_t before_;
};
