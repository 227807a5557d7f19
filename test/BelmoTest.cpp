#include <csignal>
#include <gtest/gtest.h>
#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

#include "Belmo/Assert.h"
#include "Belmo/Duration.h"
#include "Belmo/Exceptions.h"
#include "Belmo/Ptr.h"
#include "Belmo/ThreadControl.h"
#include "Lanvo/Address.h"

#include "FailureText.h"

namespace {

using Belmo::Duration;
using Belmo::Ptr;

class Counted : public Belmo::Node {
public:
    explicit Counted(int& alive) : alive_(alive) { ++alive_; }
    int touch() { return ++touched_; }

protected:
    ~Counted() override { --alive_; }

private:
    int& alive_;
    int touched_ = 0;
};

class Derived : public Counted {
public:
    using Counted::Counted;
};

class Sibling : public Counted {
public:
    using Counted::Counted;
};

TEST(Ptr, CountsItsReferencesAndDestroysAtTheLast) {
    int alive = 0;
    auto first = Belmo::make<Counted>(alive);
    EXPECT_EQ(first->references(), 1u);
    {
        auto const second = first;  // NOLINT(performance-unnecessary-copy-initialization)
        EXPECT_EQ(first->references(), 2u);
        EXPECT_EQ(second, first);
    }
    EXPECT_EQ(first->references(), 1u);
    auto const moved = std::move(first);
    EXPECT_FALSE(first);  // NOLINT(bugprone-use-after-move): a moved reference is null
    EXPECT_EQ(moved->references(), 1u);
    first = moved;
    EXPECT_EQ(alive, 1);
    first = nullptr;
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(moved->references(), 1u);
}

TEST(Ptr, DestroysThroughTheBaseClass) {
    int alive = 0;
    {
        Ptr<Belmo::Node> const node = Belmo::make<Derived>(alive);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Ptr, SurvivesAssignmentToItselfAndOfWhatItHolds) {
    struct Link : Belmo::Node {
        Ptr<Link> next;
    };
    auto head = Belmo::make<Link>();
    head->next = Belmo::make<Link>();
    auto const& same = head;
    head = same;
    EXPECT_EQ(head->references(), 1u);
    head = head->next;
    EXPECT_EQ(head->references(), 1u);
    EXPECT_FALSE(head->next);
}

TEST(Ptr, OfAConstNodeCountsAlikeAndDoesNotLendTheNode) {
    int alive = 0;
    auto writable = Belmo::make<Counted>(alive);
    Ptr<Counted const> const readable = writable;
    EXPECT_EQ(readable->references(), 2u);
    static_assert(std::is_same_v<decltype(*readable), Counted const&>);
    static_assert(!std::is_constructible_v<Ptr<Counted>, Ptr<Counted const>>);
    writable = nullptr;
    EXPECT_EQ(alive, 1);
}

TEST(PtrCast, GivesTheDerivedNodeOrNull) {
    int alive = 0;
    Ptr<Counted> const node = Belmo::make<Derived>(alive);
    auto const derived = Belmo::ptrCast<Derived>(node);
    ASSERT_TRUE(derived);
    EXPECT_EQ(derived.get(), node.get());
    EXPECT_EQ(node->references(), 2u);
    EXPECT_FALSE(Belmo::ptrCast<Sibling>(node));
    EXPECT_FALSE(Belmo::ptrCast<Derived>(Ptr<Counted>()));
    EXPECT_EQ(node->references(), 2u);
    Ptr<Counted const> const readable = node;
    EXPECT_EQ(Belmo::ptrCast<Derived const>(readable).get(), node.get());
}

TEST(Ptr, IsCountedRightByManyThreads) {
    Belmo::ThreadControl::threadsInUseIs(true);
    int alive = 0;
    {
        auto const shared = Belmo::make<Counted>(alive);
        std::vector<Ptr<Counted>> kept(8);
        std::vector<std::thread> threads;
        threads.reserve(kept.size());
        for (auto& mine : kept) {
            threads.emplace_back([&shared, &mine] {
                for (int i = 0; i < 20000; ++i) {
                    Ptr<Counted> const copy = shared;  // NOLINT(performance-unnecessary-copy-initialization)
                    mine = copy;
                }
            });
        }
        for (auto& thread : threads)
            thread.join();
        EXPECT_EQ(shared->references(), 9u);
    }
    EXPECT_EQ(alive, 0);
    Belmo::ThreadControl::threadsInUseIs(false);
}

TEST(Ptr, IsDestroyedOnceByWhicheverThreadIsLast) {
    Belmo::ThreadControl::threadsInUseIs(true);
    for (int round = 0; round < 200; ++round) {
        int alive = 0;
        auto first = Belmo::make<Counted>(alive);
        std::thread other([mine = first]() mutable {
            mine->references();
            mine = nullptr;
        });
        first = nullptr;
        other.join();
        ASSERT_EQ(alive, 0);
    }
    Belmo::ThreadControl::threadsInUseIs(false);
}

TEST(ThreadControl, IsDownUntilItIsRaised) {
    EXPECT_FALSE(Belmo::ThreadControl::threadsInUse());
    Belmo::ThreadControl::threadsInUseIs(true);
    EXPECT_TRUE(Belmo::ThreadControl::threadsInUse());
    Belmo::ThreadControl::threadsInUseIs(false);
    EXPECT_FALSE(Belmo::ThreadControl::threadsInUse());
}

TEST(Duration, IsSecondsAndStartsAtZero) {
    EXPECT_EQ(Duration().seconds(), 0);
    EXPECT_EQ(Duration(1.5).seconds(), 1.5);
    EXPECT_EQ(Duration(1.5), Duration(1.5));
    EXPECT_NE(Duration(1.5), Duration());
    EXPECT_LT(Duration(-1), Duration());
    EXPECT_FALSE(Duration().isNever());
}

TEST(Duration, OfNeverIsLaterThanAny) {
    EXPECT_TRUE(Duration::never().isNever());
    EXPECT_EQ(Duration::never(), Duration::never());
    EXPECT_GT(Duration::never(), Duration(std::numeric_limits<double>::max()));
    EXPECT_FALSE(Duration(-std::numeric_limits<double>::infinity()).isNever());
}

TEST(Duration, HashesEqualOnesAlike) {
    EXPECT_EQ(Duration(0.0), Duration(-0.0));
    EXPECT_EQ(Duration(0.0).hash(5), Duration(-0.0).hash(5));
    EXPECT_NE(Duration(1).hash(5), Duration(2).hash(5));
    EXPECT_NE(Duration(1).hash(5), Duration(1).hash(6));
}

template <class Failure>
void expectSelfKnowledge(char const* typeName) {
    Failure const failure("what went wrong");
    EXPECT_STREQ(failure.typeName(), typeName);
    EXPECT_STREQ(failure.what(), "what went wrong");
    Belmo::Exception const& base = failure;
    EXPECT_STREQ(base.typeName(), typeName);
    EXPECT_STREQ(static_cast<std::exception const&>(failure).what(), "what went wrong");
}

TEST(Exceptions, KnowTheirTypeNameAndText) {
    expectSelfKnowledge<Belmo::Exception>("Exception");
    expectSelfKnowledge<Belmo::RangeException>("RangeException");
    expectSelfKnowledge<Belmo::CorruptionDetectedException>("CorruptionDetectedException");
    expectSelfKnowledge<Belmo::DeserializationException>("DeserializationException");
    expectSelfKnowledge<Belmo::ResourceException>("ResourceException");
}

// This prefix is refused inside the shared library and caught outside of it.
void throwFromTheLibrary() {
    Lanvo::Prefix(Lanvo::IpAddr::fromHostOrder(1), 8);
}

TEST(Exceptions, AreCaughtByTypeAndByBaseAcrossLibraries) {
    char const* const text = "Lanvo::Prefix::validAsPrefix != true not allowed";
    EXPECT_EQ(failureOf<Belmo::RangeException>(throwFromTheLibrary), text);
    EXPECT_EQ(failureOf<Belmo::Exception>(throwFromTheLibrary), text);
    EXPECT_EQ(failureOf<std::exception>(throwFromTheLibrary), text);
    try {
        throwFromTheLibrary();
        FAIL();
    } catch (Belmo::DeserializationException const&) {
        FAIL();
    } catch (Belmo::Exception const& failure) {
        EXPECT_STREQ(failure.typeName(), "RangeException");
    }
}

TEST(Assert, LetsATrueConditionPassAndEvaluatesItOnce) {
    int evaluated = 0;
    BELMO_ASSERT(++evaluated == 1);
    BELMO_ASSERT_TEXT(++evaluated == 2, "evaluated == 2");
    EXPECT_EQ(evaluated, 2);
}

TEST(AssertDeathTest, AbortsWithTheConditionAsWritten) {
    int const tableSize = 0;
    EXPECT_EXIT(BELMO_ASSERT(tableSize != 0), testing::KilledBySignal(SIGABRT),
                "^Assertion failed: tableSize != 0 \\(.*BelmoTest\\.cpp:[0-9]+\\)\n$");
    EXPECT_EXIT(BELMO_ASSERT(tableSize && "why it matters"), testing::KilledBySignal(SIGABRT),
                "Assertion failed: tableSize && \"why it matters\" \\(");
}

TEST(AssertDeathTest, AbortsWithAGivenText) {
    U32 const ports = 256;
    EXPECT_EXIT(BELMO_ASSERT_TEXT(ports <= 255, "ports <= std::numeric_limits< U8 >::max()"),
                testing::KilledBySignal(SIGABRT),
                "Assertion failed: ports <= std::numeric_limits< U8 >::max\\(\\) \\(");
}

}  // namespace
