#include "nerio/Snapshot.h"

#include <fmt/format.h>
#include <system_error>
#include <utility>

namespace Nerio {

namespace {

namespace fs = std::filesystem;

void copyFile(fs::path const& from, fs::path const& to) {
    std::error_code error;
    fs::copy_file(from, to, fs::copy_options::overwrite_existing, error);
    if (error) {
        throw Belmo::ResourceException(
            fmt::format("cannot copy {} to {}: {}", from.string(), to.string(), error.message()));
    }
}

/** Locks are those of whoever has the original. */
void copyShadow(fs::path const& from, fs::path const& to) {
    fs::create_directory(to);
    for (auto const& entry : fs::directory_iterator(from)) {
        if (entry.path().extension() == ".shadow") copyFile(entry.path(), to / entry.path().filename());
    }
}

}  // namespace

Snapshot::Snapshot(fs::path const& directory) : Snapshot(directory, requiredState(directory)) {}

Snapshot::Snapshot(fs::path const& directory, KeptState state)
    : state_(std::move(state)), copy_("nerio-snapshot") {
    copyFile(directory / "chip", copy_.path() / "chip");
    try {
        copyShadow(directory / "shadow", copy_.path() / "shadow");
    } catch (fs::filesystem_error const& failure) {
        throw Belmo::ResourceException(
            fmt::format("{}: {}", failure.path1().string(), failure.code().message()));
    }
}

}  // namespace Nerio
