#include <cerrno>
#include <fmt/format.h>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <utility>
#include <xxhash.h>

#include "NerioSwitchApi/CheckedFile.h"
#include "NerioSwitchApi/FileDescriptor.h"
#include "NerioSwitchApi/FileLock.h"
#include "NerioSwitchApi/Shadow.h"

namespace NerioSwitchApi {

namespace {

constexpr FileFormat shadowFormat{"NERIOSH\x1a", 1, "shadow file", "rows"};

/**
 * The name of a table's file. What is not portable in a file name is encoded with percent signs; a long name
 * is cut and told apart by its hash behind a tilde, which no other name contains.
 */
Belmo::String fileName(std::string_view tableName) {
    constexpr std::string_view kept = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_.-";
    constexpr std::size_t longest = 200;
    Belmo::String name;
    for (char const character : tableName) {
        if (kept.find(character) != std::string_view::npos) {
            name += character;
        } else {
            name += fmt::format("%{:02X}", static_cast<unsigned char>(character));
        }
    }
    if (name.size() > longest) {
        name.resize(longest - 17);
        name += fmt::format("~{:016x}", XXH3_64bits(tableName.data(), tableName.size()));
    }
    return name + ".shadow";
}

/** Files know nothing of shadows; who asks for a shadow is told of a shadow. */
template <class Work>
auto asShadow(Work const& work) {
    try {
        return work();
    } catch (Belmo::ResourceException const& failure) {
        throw ShadowException(failure.what());
    }
}

class MappedShadowTable final : public ShadowTable {
public:
    MappedShadowTable(Belmo::String name, HwIndex firstIndex, HwIndex lastIndex, CheckedFile file,
                      std::shared_ptr<FileLock const> lock)
        : ShadowTable(std::move(name), firstIndex, lastIndex,
                      reinterpret_cast<ShadowRow*>(file.contents().data())),
          file_(std::move(file)),
          lock_(std::move(lock)) {}

private:
    CheckedFile file_;
    std::shared_ptr<FileLock const> lock_;  // a table that outlives its store still writes to the directory
};

class MappedShadowStore final : public ShadowStore {
public:
    explicit MappedShadowStore(Belmo::String const& directory) : directory_(directory) {
        if (::mkdir(directory.c_str(), S_IRWXU) != 0 && errno != EEXIST)
            throw systemFailure("cannot make", directory, errno);
        lock_ = std::make_shared<FileLock const>(directory + "/shadow.lock");
    }

private:
    Belmo::Ptr<ShadowTable> newTable(Belmo::String const& name, HwIndex firstIndex, HwIndex lastIndex,
                                     StartMode mode) override {
        auto const path = directory_ + "/" + fileName(name);
        auto const rows = fmt::format("{} of \"{}\"", rowsText(firstIndex, lastIndex), name);
        auto const size = rowCount(firstIndex, lastIndex) * sizeof(ShadowRow);
        bool const kept = mode == StartMode::warm && isThere(path);
        CheckedFile file = asShadow([&] {
            return kept ? CheckedFile::open(shadowFormat, path, rows, size)
                        : CheckedFile::create(shadowFormat, path, rows, size);
        });
        return Belmo::make<MappedShadowTable>(name, firstIndex, lastIndex, std::move(file), lock_);
    }

    static bool isThere(Belmo::String const& path) {
        struct stat status {};
        return ::lstat(path.c_str(), &status) == 0 || errno != ENOENT;
    }

    Belmo::String directory_;
    std::shared_ptr<FileLock const> lock_;
};

}  // namespace

Belmo::Ptr<ShadowStore> mappedShadowStore(Belmo::String const& directory) {
    return asShadow([&] { return Belmo::make<MappedShadowStore>(directory); });
}

}  // namespace NerioSwitchApi
