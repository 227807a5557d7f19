#include <algorithm>
#include <csignal>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Belmo/Exceptions.h"
#include "NerioSwitchApi/CheckedFile.h"
#include "NerioSwitchApi/FileLock.h"
#include "NerioSwitchApi/MappedFile.h"

#include "ChildProcess.h"
#include "FailureText.h"
#include "TemporaryDirectory.h"

namespace {

using namespace NerioSwitchApi;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

void fillWith(std::span<std::byte> bytes, char character) {
    std::memset(bytes.data(), character, bytes.size());
}

TEST(MappedFile, HoldsWhatIsStoredAfterTheMappingIsGone) {
    TemporaryDirectory const directory;
    auto const path = directory.path("memory");
    {
        auto file = MappedFile::create(path, 10000, [](auto bytes) { fillWith(bytes.first(3), 'a'); });
        ASSERT_EQ(file.bytes().size(), 10000u);
        file.bytes()[9999] = std::byte{'z'};
        auto const moved = std::move(file);
        EXPECT_EQ(moved.bytes()[9999], std::byte{'z'});
    }
    auto const file = MappedFile::open(path);
    EXPECT_EQ(file.path(), path);
    ASSERT_EQ(file.bytes().size(), 10000u);
    EXPECT_EQ(file.bytes()[2], std::byte{'a'});
    EXPECT_EQ(file.bytes()[3], std::byte{0});
    EXPECT_EQ(file.bytes()[9999], std::byte{'z'});
    EXPECT_THAT(directory.names(), ElementsAre("memory"));
}

TEST(MappedFile, HoldsWhatWasStoredBeforeItsProcessWasKilled) {
    TemporaryDirectory const directory;
    ChildProcess child([&] {
        auto const file = MappedFile::create(directory.path("memory"), 4096, [](auto) {});
        file.bytes()[17] = std::byte{42};
        return ::raise(SIGKILL);
    });
    ASSERT_EQ(child.ended(), -SIGKILL);
    EXPECT_EQ(MappedFile::open(directory.path("memory")).bytes()[17], std::byte{42});
}

TEST(MappedFile, IsForItsOwnerAloneUnderAWideUmask) {
    UmaskGuard const wide(0);
    TemporaryDirectory const directory;
    auto const file = MappedFile::create(directory.path("memory"), 1, [](auto) {});
    EXPECT_EQ(permissionsOf(directory.path("memory")), 0600u);
}

TEST(MappedFile, ThatOthersMayTouchIsRefused) {
    TemporaryDirectory const directory;
    auto const path = directory.path("memory");
    contentsOfIs(path, "contents");
    for (mode_t const bit : {0001u, 0002u, 0004u, 0010u, 0020u, 0040u}) {
        ASSERT_EQ(::chmod(path.c_str(), 0600 | bit), 0);
        EXPECT_THAT(failureOf<Belmo::ResourceException>([&] { MappedFile::open(path); }),
                    HasSubstr(path + " is open to others than its owner (mode 06"));
    }
    ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
    EXPECT_EQ(MappedFile::open(path).bytes().size(), 8u);
}

TEST(MappedFile, IsWholeOrNotThereWhenItsMakerIsKilled) {
    TemporaryDirectory const directory;
    auto const path = directory.path("memory");
    auto const makeAndDie = [&] {
        ChildProcess child([&] {
            MappedFile::create(path, 4096, [](auto bytes) {
                fillWith(bytes, 'n');
                ::raise(SIGKILL);
            });
            return 0;
        });
        return child.ended();
    };
    ASSERT_EQ(makeAndDie(), -SIGKILL);
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { MappedFile::open(path); }),
              "cannot open " + path + ": No such file or directory");

    // What the dead maker left is in nobody's way, and goes.
    MappedFile::create(path, 100, [](auto bytes) { fillWith(bytes, 'o'); });
    EXPECT_THAT(directory.names(), ElementsAre("memory"));
    ASSERT_EQ(makeAndDie(), -SIGKILL);
    EXPECT_EQ(contentsOf(path), std::string(100, 'o'));
}

TEST(MappedFile, LeavesNothingWhenFillingItFails) {
    TemporaryDirectory const directory;
    contentsOfIs(directory.path("memory"), "old");
    auto const fail = [](auto) { throw Belmo::ResourceException("no contents"); };
    EXPECT_EQ(
        failureOf<Belmo::ResourceException>([&] { MappedFile::create(directory.path("memory"), 1, fail); }),
        "no contents");
    EXPECT_THAT(directory.names(), ElementsAre("memory"));
    EXPECT_EQ(contentsOf(directory.path("memory")), "old");
}

TEST(MappedFile, SaysWhyItCannotBe) {
    TemporaryDirectory const directory;
    auto const make = [&](std::string const& name) {
        return failureOf<Belmo::ResourceException>(
            [&] { MappedFile::create(directory.path(name), 1, [](auto) {}); });
    };
    auto const open = [&](std::string const& name) {
        return failureOf<Belmo::ResourceException>([&] { MappedFile::open(directory.path(name)); });
    };
    contentsOfIs(directory.path("file"), "");
    std::filesystem::create_directory(directory.path("folder"));
    std::filesystem::create_symlink("file", directory.path("link"));
    ASSERT_EQ(::mkfifo(directory.path("pipe").c_str(), 0600), 0);

    EXPECT_EQ(make("none/memory"),
              "cannot make " + directory.path("none/memory.new") + ": No such file or directory");
    EXPECT_EQ(make("file/memory"), "cannot make " + directory.path("file/memory.new") + ": Not a directory");
    EXPECT_EQ(make("folder"), "cannot make " + directory.path("folder") + ": Is a directory");
    EXPECT_EQ(open("none"), "cannot open " + directory.path("none") + ": No such file or directory");
    EXPECT_EQ(open("folder"), "cannot open " + directory.path("folder") + ": Is a directory");
    EXPECT_EQ(open("link"), "cannot open " + directory.path("link") + ": Too many levels of symbolic links");
    EXPECT_EQ(open("pipe"), directory.path("pipe") + " is not a regular file");
    EXPECT_THAT(directory.names(), ElementsAre("file", "folder", "link", "pipe"));
    EXPECT_THAT(MappedFile::open(directory.path("file")).bytes(), IsEmpty());
}

TEST(MappedFile, NeedsAllItsRoomAtOnce) {
    TemporaryDirectory const directory;
    auto const path = directory.path("memory");
    ChildProcess child([&] {
        longestFileIs(65536);
        bool filled = false;
        auto const reason = failureOf<Belmo::ResourceException>(
            [&] { MappedFile::create(path, 65537, [&](auto) { filled = true; }); });
        if (filled || reason != "cannot allocate " + path + ": File too large") return 1;
        if (!directory.names().empty()) return 2;
        MappedFile::create(path, 65536, [](auto) {});
        return 0;
    });
    EXPECT_EQ(child.ended(), 0);
    EXPECT_EQ(std::filesystem::file_size(path), 65536u);
    EXPECT_THAT(failureOf<Belmo::ResourceException>(
                    [&] { MappedFile::create(path, ~std::size_t{0} / 4, [](auto) {}); }),
                HasSubstr("cannot allocate " + path + ": "));
    EXPECT_THAT(directory.names(), ElementsAre("memory"));
}

TEST(FileLock, IsHeldOncePerProcess) {
    TemporaryDirectory const directory;
    auto const path = directory.path("lock");
    {
        FileLock const lock(path);
        EXPECT_EQ(permissionsOf(path), 0600u);
        EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock second(path); }),
                  path + " is held by process " + std::to_string(::getpid()));
        contentsOfIs(path, "");
        EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock second(path); }),
                  path + " is held by another");
    }
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock next(path); }), "");
}

TEST(FileLock, IsHeldByOneProcessAndGoesWithIt) {
    TemporaryDirectory const directory;
    auto const path = directory.path("lock");
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    ChildProcess child([&] {
        FileLock const lock(path);
        char const byte = 0;
        if (::write(ready[1], &byte, 1) == 1) ::pause();
        return 0;
    });
    char byte = 1;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock second(path); }),
              path + " is held by process " + std::to_string(child.process()));
    ASSERT_EQ(::kill(child.process(), SIGKILL), 0);
    ASSERT_EQ(child.ended(), -SIGKILL);
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock next(path); }), "");
    EXPECT_THAT(contentsOf(path), StartsWith(std::to_string(::getpid()) + " "));
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST(FileLock, SaysWhyItCannotBe) {
    TemporaryDirectory const directory;
    auto const path = directory.path("none/lock");
    EXPECT_EQ(failureOf<Belmo::ResourceException>([&] { FileLock lock(path); }),
              "cannot open " + path + ": No such file or directory");
}

class CheckedFileTest : public testing::Test {
protected:
    static constexpr FileFormat format{"DROPS\r\n\x1a", 3, "drop file", "drops"};
    static constexpr std::size_t contentSize = 100;

    CheckedFileTest() : path_(directory_.path("drops")) {}

    void make(std::string const& description = "a to z") {
        CheckedFile::create(format, path_, description, contentSize,
                            [](auto bytes) { fillWith(bytes, '.'); });
    }
    std::string openFailure(FileFormat const& asFormat = format, std::string const& description = "a to z",
                            std::size_t size = contentSize) const {
        return failureOf<Belmo::ResourceException>(
            [&] { CheckedFile::open(asFormat, path_, description, size); });
    }
    std::string makeFailure() {
        return failureOf<Belmo::ResourceException>([&] { make(); });
    }

    TemporaryDirectory directory_;
    std::string path_;
};

TEST_F(CheckedFileTest, GivesBackItsContents) {
    for (std::size_t length = 0; length < 150; ++length) {
        std::string const description(length, 'd');
        make(description);
        auto const file = CheckedFile::open(format, path_, description, contentSize);
        ASSERT_EQ(file.contents().size(), contentSize);
        EXPECT_TRUE(std::ranges::all_of(file.contents(), [](auto byte) { return byte == std::byte{'.'}; }));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(file.contents().data()) % 64, 0u);
    }
}

TEST_F(CheckedFileTest, IsOfItsKindVersionDescriptionAndSize) {
    make();
    EXPECT_EQ(openFailure(), "");
    EXPECT_EQ(openFailure({"DRAPS\r\n\x1a", 3, "drap file", "draps"}), path_ + " is not a drap file");
    EXPECT_EQ(openFailure({format.magic, 2, format.name, format.holds}),
              path_ + " was written by a newer version (found 3, this is 2)");
    EXPECT_EQ(openFailure({format.magic, 4, format.name, format.holds}),
              path_ + " was written by an older version (found 3, this is 4)");
    EXPECT_EQ(openFailure(format, "a to y"), path_ + " has other drops: found a to z, this is a to y");
    EXPECT_EQ(openFailure(format, "a to z", 101), path_ + " is too short: 164 bytes of 165");
    EXPECT_EQ(openFailure(format, "a to z", 99), path_ + " is damaged: 164 bytes, not 163");
}

TEST_F(CheckedFileTest, OfTheOtherByteOrderIsRefused) {
    make();
    auto contents = contentsOf(path_);
    std::reverse(contents.begin() + 8, contents.begin() + 12);
    contentsOfIs(path_, contents);
    EXPECT_EQ(openFailure(), path_ + " has the other byte order");
}

TEST_F(CheckedFileTest, TellsEveryFlippedBitOfItsHead) {
    make();
    auto const whole = contentsOf(path_);
    for (std::size_t bit = 0; bit < std::size_t{64} * 8; ++bit) {
        auto contents = whole;
        contents[bit / 8] = static_cast<char>(contents[bit / 8] ^ (1 << bit % 8));
        contentsOfIs(path_, contents);
        EXPECT_NE(openFailure(), "") << "bit " << bit;
        EXPECT_EQ(contentsOf(path_), contents) << "bit " << bit;
    }
}

TEST_F(CheckedFileTest, CutAtAnyLengthIsTooShortAndIsReplaced) {
    make();
    auto const whole = contentsOf(path_);
    for (std::size_t length = 0; length < whole.size(); ++length) {
        contentsOfIs(path_, whole.substr(0, length));
        EXPECT_THAT(openFailure(), HasSubstr(" is too short: " + std::to_string(length) + " bytes of "));
        EXPECT_EQ(makeFailure(), "");
        ASSERT_EQ(contentsOf(path_), whole);
    }
}

TEST_F(CheckedFileTest, DoesNotReplaceWhatIsOfAnotherKind) {
    for (std::string const foreign : {"DROP IT", "DROPS\r\n\x1b", "#!/bin/sh\nexit 0\n"}) {
        contentsOfIs(path_, foreign);
        EXPECT_EQ(openFailure(), path_ + " is not a drop file");
        EXPECT_EQ(makeFailure(), path_ + " is not a drop file");
        EXPECT_EQ(contentsOf(path_), foreign);
    }
    std::filesystem::remove(path_);
    std::filesystem::create_directory(path_);
    EXPECT_EQ(makeFailure(), path_ + " is not a drop file");
    std::filesystem::remove(path_);
    contentsOfIs(directory_.path("mine"), "contents");
    std::filesystem::create_symlink("mine", path_);
    EXPECT_EQ(makeFailure(), "cannot open " + path_ + ": Too many levels of symbolic links");
    EXPECT_EQ(contentsOf(directory_.path("mine")), "contents");
}

TEST_F(CheckedFileTest, LeavesNoOldOneBehindWhenMakingItFails) {
    make();
    auto const fail = [](auto) { throw Belmo::ResourceException("no contents"); };
    EXPECT_EQ(failureOf<Belmo::ResourceException>(
                  [&] { CheckedFile::create(format, path_, "a to z", contentSize, fail); }),
              "no contents");
    EXPECT_THAT(directory_.names(), IsEmpty());
}

}  // namespace
