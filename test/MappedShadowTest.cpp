#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <rapidcheck/gtest.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <vector>

#include "Belmo/Exceptions.h"
#include "NerioSwitchApi/Shadow.h"

#include "ChildProcess.h"
#include "FailureText.h"
#include "TemporaryDirectory.h"

namespace {

namespace fs = std::filesystem;

using namespace NerioSwitchApi;
using testing::ElementsAre;
using testing::StartsWith;

using Words = std::vector<U32>;

/** A directory of shadows with one table of four rows, "lag" 10 to 13, of which 11 and 12 are written. */
class MappedShadowTest : public testing::Test {
protected:
    static constexpr std::size_t rowCount = 4;
    static constexpr std::size_t headSize = 64;
    static constexpr std::size_t fileSize = headSize + rowCount * sizeof(ShadowRow);

    MappedShadowTest() {
        auto const lag = table(StartMode::cold);
        lag->store(11, one_);
        lag->store(12, two_);
    }

    Belmo::Ptr<ShadowStore> store() const { return mappedShadowStore(shadow_); }
    /** The table as a process finds it that starts now; the directory is free again without it. */
    Belmo::Ptr<ShadowTable> table(StartMode mode) const { return store()->tableIs("lag", 10, 13, mode); }
    std::string failure(StartMode mode) const {
        return failureOf<ShadowException>([&] { table(mode); });
    }
    std::string openFailure(std::string const& directory) const {
        return failureOf<ShadowException>([&] { mappedShadowStore(directory); });
    }

    TemporaryDirectory directory_;
    std::string shadow_ = directory_.path("shadow");
    std::string file_ = shadow_ + "/lag.shadow";
    Words one_{1, 0xFFFFFFFF, 3};
    Words two_{0, 0, 0, 0, 0, 0, 0, 8};
};

TEST_F(MappedShadowTest, OutlivesItsProcess) {
    EXPECT_EQ(fs::file_size(file_), fileSize);
    auto const lag = table(StartMode::warm);
    EXPECT_EQ(lag->read(10), std::nullopt);
    EXPECT_EQ(lag->read(11), HwEntryConfig(11, one_));
    EXPECT_EQ(lag->read(12), HwEntryConfig(12, two_));
    EXPECT_EQ(lag->read(13), std::nullopt);
}

TEST_F(MappedShadowTest, IsForItsOwnerAloneUnderAWideUmask) {
    UmaskGuard const wide(0);
    auto const other = mappedShadowStore(directory_.path("other"));
    auto const table = other->tableIs("lag", 0, 9, StartMode::warm);
    EXPECT_EQ(permissionsOf(directory_.path("other")), 0700u);
    EXPECT_EQ(permissionsOf(directory_.path("other/lag.shadow")), 0600u);
    EXPECT_EQ(permissionsOf(directory_.path("other/shadow.lock")), 0600u);
}

TEST_F(MappedShadowTest, ThatOthersMayTouchIsRefusedWarmAndReplacedCold) {
    ASSERT_EQ(::chmod(file_.c_str(), 0640), 0);
    EXPECT_EQ(failure(StartMode::warm), file_ + " is open to others than its owner (mode 0640)");
    EXPECT_EQ(failure(StartMode::cold), "");
    EXPECT_EQ(permissionsOf(file_), 0600u);
}

TEST_F(MappedShadowTest, HoldsARowOnlyFromTheMomentItIsWritten) {
    auto const killedAt = [&](auto const& work) {
        ChildProcess child([&] {
            auto const lag = table(StartMode::warm);
            work(*lag);
            return ::raise(SIGKILL);
        });
        return child.ended();
    };
    auto const intend = [&](ShadowTable& lag) { lag.intend(11, Words{4, 5}); };
    ASSERT_EQ(killedAt(intend), -SIGKILL);
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
    auto const write = [&](ShadowTable& lag) {
        intend(lag);
        lag.written(11);
    };
    ASSERT_EQ(killedAt(write), -SIGKILL);
    EXPECT_EQ(table(StartMode::warm)->read(11), HwEntryConfig(11, Words{4, 5}));
    EXPECT_EQ(table(StartMode::warm)->read(12), HwEntryConfig(12, two_));
}

constexpr int notTraced = 77;

/**
 * Runs `work` in a child and stops it behind every single instruction to call `look`. Gives the child's exit
 * status, or `notTraced` where the system lets no process trace another.
 */
template <class Work, class Look>
int stepThrough(Work const& work, Look const& look) {
    ChildProcess child([&] {
        if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) return notTraced;
        ::raise(SIGSTOP);
        work();
        return 0;
    });
    int status = 0;
    while (::waitpid(child.process(), &status, 0) == child.process() && WIFSTOPPED(status)) {
        look();
        if (::ptrace(PTRACE_SINGLESTEP, child.process(), nullptr, nullptr) != 0) break;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

/** What a reader sees of one row from before the work to behind it; the same in a row counts once. */
class MappedShadowStepTest : public MappedShadowTest {
protected:
    template <class Work>
    void see(ShadowTable const& table, HwIndex row, Work const& work) {
        int const status = stepThrough(work, [&] {
            auto const held = table.read(row);  // throws if the row is corrupt
            if (seen_.empty() || seen_.back() != held) seen_.push_back(held);
            ++steps_;
        });
        if (status == notTraced) GTEST_SKIP() << "this system lets no process trace another";
        ASSERT_EQ(status, 0);
        EXPECT_GT(steps_, 50);
    }

    std::vector<std::optional<HwEntryConfig>> seen_;
    int steps_ = 0;
};

TEST_F(MappedShadowStepTest, IsOldThenNotHeldThenNewAtEveryInstructionOfAWrite) {
    auto const lag = table(StartMode::warm);
    Words const next{9, 8, 7, 6, 5, 4, 3, 2};
    see(*lag, 11, [&] {
        lag->intend(11, next);
        lag->written(11);
    });
    if (IsSkipped()) return;
    EXPECT_THAT(seen_, ElementsAre(HwEntryConfig(11, one_), std::nullopt, HwEntryConfig(11, next)));
}

TEST_F(MappedShadowStepTest, IsOldThenNotHeldAtEveryInstructionOfADrop) {
    auto const lag = table(StartMode::warm);
    see(*lag, 12, [&] { lag->drop(12); });
    if (IsSkipped()) return;
    EXPECT_THAT(seen_, ElementsAre(HwEntryConfig(12, two_), std::nullopt));
}

TEST_F(MappedShadowTest, FindsADamagedRowAndNoOther) {
    auto const whole = contentsOf(file_);
    for (std::size_t bit = headSize * 8; bit < fileSize * 8; ++bit) {
        auto contents = whole;
        contents[bit / 8] = static_cast<char>(contents[bit / 8] ^ 1 << bit % 8);
        contentsOfIs(file_, contents);
        auto const lag = table(StartMode::warm);
        HwIndex const damaged = 10 + static_cast<HwIndex>((bit / 8 - headSize) / sizeof(ShadowRow));
        EXPECT_THROW(lag->read(damaged), Belmo::CorruptionDetectedException) << "bit " << bit;
        for (HwIndex row = 10; row <= 13; ++row) {
            if (row != damaged) {
                EXPECT_EQ(lag->read(row).has_value(), row == 11 || row == 12) << "bit " << bit;
            }
        }
    }
}

TEST_F(MappedShadowTest, RefusesEveryFlippedBitOfTheHeadWarm) {
    auto const whole = contentsOf(file_);
    for (std::size_t bit = 0; bit < headSize * 8; ++bit) {
        auto contents = whole;
        contents[bit / 8] = static_cast<char>(contents[bit / 8] ^ 1 << bit % 8);
        contentsOfIs(file_, contents);
        EXPECT_THAT(failure(StartMode::warm), StartsWith(file_ + " ")) << "bit " << bit;
        EXPECT_EQ(contentsOf(file_), contents) << "bit " << bit;
        bool const foreign = bit / 8 < 8;
        EXPECT_EQ(failure(StartMode::cold), foreign ? file_ + " is not a shadow file" : "");
        EXPECT_EQ(contentsOf(file_) == contents, foreign) << "bit " << bit;
    }
}

TEST_F(MappedShadowTest, RefusesAFileThatIsCutWarm) {
    auto const whole = contentsOf(file_);
    for (std::size_t length = 0; length < fileSize; ++length) {
        contentsOfIs(file_, whole.substr(0, length));
        EXPECT_THAT(failure(StartMode::warm),
                    StartsWith(file_ + " is too short: " + std::to_string(length) + " bytes of "));
        EXPECT_EQ(fs::file_size(file_), length);
    }
    EXPECT_EQ(failure(StartMode::cold), "");
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
}

TEST_F(MappedShadowTest, RefusesANewerVersionWarmAndReplacesItCold) {
    auto contents = contentsOf(file_);
    contents[12] = 2;
    contentsOfIs(file_, contents);
    EXPECT_EQ(failure(StartMode::warm), file_ + " was written by a newer version (found 2, this is 1)");
    EXPECT_EQ(contentsOf(file_), contents);
    EXPECT_EQ(failure(StartMode::cold), "");
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
}

TEST_F(MappedShadowTest, LeavesAForeignFileAlone) {
    std::string const foreign = "#!/bin/sh\nrm -rf tmp\n";
    contentsOfIs(file_, foreign);
    for (auto const mode : {StartMode::warm, StartMode::cold}) {
        EXPECT_EQ(failure(mode), file_ + " is not a shadow file");
        EXPECT_EQ(contentsOf(file_), foreign);
    }
    EXPECT_THAT(TemporaryDirectory::namesIn(shadow_), ElementsAre("lag.shadow", "shadow.lock"));
}

TEST_F(MappedShadowTest, HasTheNameAndTheRowsItWasMadeWith) {
    auto const failureFor = [&](std::string const& name, HwIndex first, HwIndex last) {
        return failureOf<ShadowException>([&] { store()->tableIs(name, first, last, StartMode::warm); });
    };
    EXPECT_EQ(failureFor("lag", 10, 14),
              file_ + " has other rows: found 10 to 13 of \"lag\", this is 10 to 14 of \"lag\"");
    EXPECT_EQ(failureFor("lag", 9, 12),  // as many rows
              file_ + " has other rows: found 10 to 13 of \"lag\", this is 9 to 12 of \"lag\"");
    fs::rename(file_, shadow_ + "/lug.shadow");
    EXPECT_EQ(failureFor("lug", 10, 13), shadow_ + "/lug.shadow has other rows: found 10 to 13 of \"lag\", " +
                                             "this is 10 to 13 of \"lug\"");
}

TEST_F(MappedShadowTest, IsForOneStoreAtATime) {
    std::string const held = shadow_ + "/shadow.lock is held by process ";
    {
        auto const first = store();
        EXPECT_EQ(openFailure(shadow_), held + std::to_string(::getpid()));
        EXPECT_EQ(openFailure(shadow_ + "/../shadow"),
                  shadow_ + "/../shadow/shadow.lock is held by process " + std::to_string(::getpid()));
    }
    auto const lag = table(StartMode::warm);  // its store is gone, but it still writes there
    EXPECT_EQ(openFailure(shadow_), held + std::to_string(::getpid()));
}

TEST_F(MappedShadowTest, IsForOneProcessAtATime) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    ChildProcess child([&] {
        auto const first = store();
        char const byte = 0;
        if (::write(ready[1], &byte, 1) == 1) ::pause();
        return 0;
    });
    char byte = 1;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);
    EXPECT_EQ(openFailure(shadow_),
              shadow_ + "/shadow.lock is held by process " + std::to_string(child.process()));
    ASSERT_EQ(::kill(child.process(), SIGKILL), 0);
    ASSERT_EQ(child.ended(), -SIGKILL);
    EXPECT_EQ(table(StartMode::warm)->read(11), HwEntryConfig(11, one_));
    ::close(ready[0]);
    ::close(ready[1]);
}

TEST_F(MappedShadowTest, NeedsRoomForAllRowsAtOnce) {
    ChildProcess child([&] {
        longestFileIs(4096);
        auto const shadows = store();
        for (auto const mode : {StartMode::warm, StartMode::cold}) {
            auto const reason = failureOf<ShadowException>([&] { shadows->tableIs("big", 0, 999, mode); });
            if (reason != "cannot allocate " + shadow_ + "/big.shadow: File too large") return 1;
        }
        if (TemporaryDirectory::namesIn(shadow_) != std::vector<std::string>{"lag.shadow", "shadow.lock"})
            return 2;
        longestFileIs(65536);
        auto const big = shadows->tableIs("big", 0, 999, StartMode::warm);
        big->store(999, one_);
        return 0;
    });
    ASSERT_EQ(child.ended(), 0);
    EXPECT_EQ(store()->tableIs("big", 0, 999, StartMode::warm)->read(999), HwEntryConfig(999, one_));
}

TEST_F(MappedShadowTest, ForgetsTheOldRowsEvenIfAColdStartFindsNoRoom) {
    ChildProcess child([&] {
        longestFileIs(fileSize - 1);
        auto const shadows = store();
        auto const lag = shadows->tableIs("lag", 10, 13, StartMode::warm);
        if (failureOf<ShadowException>([&] { shadows->tableIs("lag", 10, 13, StartMode::cold); }).empty())
            return 1;
        longestFileIs(fileSize);
        return shadows->tableIs("lag", 10, 13, StartMode::warm)->read(11) ? 2 : 0;
    });
    EXPECT_EQ(child.ended(), 0);
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
}

TEST_F(MappedShadowTest, SaysWhyItCannotBe) {
    EXPECT_EQ(openFailure(shadow_ + "/none/shadow"),
              "cannot make " + shadow_ + "/none/shadow: No such file or directory");
    EXPECT_EQ(openFailure(file_ + "/shadow"), "cannot make " + file_ + "/shadow: Not a directory");
    EXPECT_EQ(openFailure(file_), "cannot open " + file_ + "/shadow.lock: Not a directory");
    fs::remove(file_);
    fs::create_directory(file_);
    EXPECT_EQ(failure(StartMode::warm), "cannot open " + file_ + ": Is a directory");
    EXPECT_EQ(failure(StartMode::cold), file_ + " is not a shadow file");
}

TEST_F(MappedShadowTest, IsInNobodysWayAfterAMakerWasKilled) {
    fs::remove(file_);
    contentsOfIs(file_ + ".new", "half a file");
    EXPECT_EQ(table(StartMode::warm)->read(11), std::nullopt);
    EXPECT_THAT(TemporaryDirectory::namesIn(shadow_), ElementsAre("lag.shadow", "shadow.lock"));
}

TEST_F(MappedShadowTest, UsesAFileNameThatEverySystemTakes) {
    std::string const longName = std::string(300, 'n') + "/";
    auto const shadows = store();
    shadows->tableIs("ingress/port[3] 50%\n", 0, 0, StartMode::warm);
    shadows->tableIs(longName, 0, 0, StartMode::warm);
    auto const names = TemporaryDirectory::namesIn(shadow_);
    ASSERT_EQ(names.size(), 4u);
    EXPECT_EQ(names[0], "ingress%2Fport%5B3%5D%2050%25%0A.shadow");
    EXPECT_THAT(names[2], StartsWith(std::string(183, 'n') + "~"));
    EXPECT_EQ(names[2].size(), 207u);
}

/** Whatever lies in the file, a start takes it or says why not, and a read finds a row, none, or corruption.
 */
void survives(std::string const& directory, std::string const& contents) {
    contentsOfIs(directory + "/lag.shadow", contents);
    Belmo::Ptr<ShadowTable> lag;
    try {
        lag = mappedShadowStore(directory)->tableIs("lag", 10, 13, StartMode::warm);
    } catch (ShadowException const&) {
        RC_ASSERT(contentsOf(directory + "/lag.shadow") == contents);
        return;
    }
    for (HwIndex row = 10; row <= 13; ++row) {
        try {
            auto const held = lag->read(row);
            bool const isThatRow = !held || held->index() == row;  // RC_ASSERT evaluates both sides
            RC_ASSERT(isThatRow);
        } catch (Belmo::CorruptionDetectedException const&) {
        } catch (Belmo::RangeException const&) {
        }
    }
}

TEST_F(MappedShadowTest, SurvivesAnyBytes) {
    auto const whole = contentsOf(file_);
    EXPECT_TRUE(rc::check("as a file", [&](std::string const& contents) { survives(shadow_, contents); }));
    EXPECT_TRUE(rc::check("behind the magic", [&](std::string const& contents) {
        survives(shadow_, whole.substr(0, 12) + contents);
    }));
    EXPECT_TRUE(rc::check("as rows", [&] {
        auto const rows = *rc::gen::container<std::string>(fileSize - headSize, rc::gen::arbitrary<char>());
        survives(shadow_, whole.substr(0, headSize) + rows);
    }));
    EXPECT_TRUE(rc::check("somewhere in a whole file", [&](std::string const& patch) {
        auto contents = whole;
        auto const at = *rc::gen::inRange<std::size_t>(0, fileSize);
        contents.replace(at, std::min(patch.size(), fileSize - at), patch);
        survives(shadow_, contents);
    }));
}

}  // namespace
