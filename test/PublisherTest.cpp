#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Belmo/Publisher.h"
#include "Bridging/VlanId.h"

namespace {

using Belmo::Change;
using Belmo::Publisher;
using Belmo::Subscription;

using Heard = std::vector<std::string>;

/** Notes what is published, as "who:attribute:key". */
Belmo::Observer noteIn(Heard& heard, std::string who) {
    return [&heard, who = std::move(who)](Change const& change) {
        auto const* key = change.key.as<int>();
        heard.push_back(who + ":" + std::string(change.attribute) + ":" + (key ? std::to_string(*key) : "?"));
    };
}

TEST(Publisher, TellsObserversOfTheAttributeAndOfTheNode) {
    Publisher publisher;
    Heard heard;
    auto const ofEntry = publisher.observe("entry", noteIn(heard, "one"));
    auto const ofAll = publisher.observeAll(noteIn(heard, "all"));
    publisher.publishChangeRecursive("entry", 7);
    publisher.publishChangeRecursive("status", 8);
    publisher.publishChangeRecursive("entryStatus", 9);
    EXPECT_EQ(heard, (Heard{"one:entry:7", "all:entry:7", "all:status:8", "all:entryStatus:9"}));
}

TEST(Publisher, TellsObserversInOrderOfRegistration) {
    Publisher publisher;
    Heard heard;
    auto const first = publisher.observe("entry", noteIn(heard, "first"));
    auto second = publisher.observeAll(noteIn(heard, "second"));
    auto const third = publisher.observe("entry", noteIn(heard, "third"));
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, (Heard{"first:entry:1", "second:entry:1", "third:entry:1"}));
    heard.clear();
    second = publisher.observeAll(noteIn(heard, "last"));
    publisher.publishChangeRecursive("entry", 2);
    EXPECT_EQ(heard, (Heard{"first:entry:2", "third:entry:2", "last:entry:2"}));
}

TEST(Publisher, WithoutObserversIsSilent) {
    Publisher publisher;
    Heard heard;
    publisher.publishChangeRecursive("entry", 1);
    { auto const gone = publisher.observe("entry", noteIn(heard, "gone")); }
    publisher.publishChangeRecursive("entry", 2);
    EXPECT_TRUE(heard.empty());
}

TEST(Publisher, HandsOutTheKeyInItsOwnTypeOnly) {
    Publisher publisher;
    int matched = 0;
    auto const subscription = publisher.observe("entry", [&](Change const& change) {
        ASSERT_NE(change.key.as<Bridging::VlanId>(), nullptr);
        EXPECT_EQ(*change.key.as<Bridging::VlanId>(), Bridging::VlanId(7));
        EXPECT_EQ(change.key.as<Bridging::VlanIdOrNone>(), nullptr);
        EXPECT_EQ(change.key.as<U16>(), nullptr);
        ++matched;
    });
    publisher.publishChangeRecursive("entry", Bridging::VlanId(7));
    EXPECT_EQ(matched, 1);
    EXPECT_EQ(Belmo::KeyRef().as<int>(), nullptr);
}

TEST(Publisher, TellsAnObserverRegisteredDuringAChangeOfTheNextOne) {
    Publisher publisher;
    Heard heard;
    std::vector<Subscription> late;
    auto const early = publisher.observe("entry", [&](Change const&) {
        late.push_back(publisher.observe("entry", noteIn(heard, "late" + std::to_string(late.size()))));
    });
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_TRUE(heard.empty());
    publisher.publishChangeRecursive("entry", 2);
    EXPECT_EQ(heard, Heard{"late0:entry:2"});
    heard.clear();
    publisher.publishChangeRecursive("entry", 3);
    EXPECT_EQ(heard, (Heard{"late0:entry:3", "late1:entry:3"}));
}

TEST(Publisher, LetsAnObserverDropItself) {
    Publisher publisher;
    Heard heard;
    std::optional<Subscription> once;
    // What the observer holds stays usable to the end of the call that drops it.
    once = publisher.observe("entry", [&, held = std::make_shared<int>(5)](Change const&) {
        once.reset();
        heard.push_back("once:" + std::to_string(*held));
        publisher.publishChangeRecursive("entry", 2);
    });
    auto const other = publisher.observe("entry", noteIn(heard, "other"));
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, (Heard{"once:5", "other:entry:2", "other:entry:1"}));
}

TEST(Publisher, DoesNotTellAnObserverThatAnEarlierOneDropped) {
    Publisher publisher;
    Heard heard;
    std::optional<Subscription> later;
    auto const first = publisher.observe("entry", [&](Change const&) { later.reset(); });
    later = publisher.observe("entry", noteIn(heard, "later"));
    auto const last = publisher.observe("entry", noteIn(heard, "last"));
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, Heard{"last:entry:1"});
}

TEST(Publisher, TellsAChangeMadeByAnObserverBeforeItGoesOn) {
    Publisher publisher;
    Heard heard;
    auto const first = publisher.observe("entry", [&](Change const& change) {
        int const depth = *change.key.as<int>();
        heard.push_back("in " + std::to_string(depth));
        if (depth < 3) publisher.publishChangeRecursive("entry", depth + 1);
        heard.push_back("out " + std::to_string(depth));
    });
    auto const second = publisher.observe("entry", noteIn(heard, "second"));
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, (Heard{"in 1", "in 2", "in 3", "out 3", "second:entry:3", "out 2", "second:entry:2",
                            "out 1", "second:entry:1"}));
}

TEST(Publisher, MayDieBeforeItsSubscriptions) {
    Heard heard;
    auto publisher = std::make_unique<Publisher>();
    auto const held = std::make_shared<int>(0);
    auto subscription = publisher->observe("entry", [held](Change const&) {});
    publisher.reset();
    EXPECT_EQ(held.use_count(), 2);
    subscription = Subscription();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(Publisher, PassesAFailureOnAndStaysUsable) {
    Publisher publisher;
    Heard heard;
    std::optional<Subscription> failing =
        publisher.observe("entry", [](Change const&) { throw std::runtime_error("no"); });
    auto const next = publisher.observe("entry", noteIn(heard, "next"));
    EXPECT_THROW(publisher.publishChangeRecursive("entry", 1), std::runtime_error);
    EXPECT_TRUE(heard.empty());
    failing.reset();
    publisher.publishChangeRecursive("entry", 2);
    EXPECT_EQ(heard, Heard{"next:entry:2"});
}

TEST(Subscription, FreesItsObserverAsSoonAsItIsDropped) {
    Publisher publisher;
    auto const held = std::make_shared<int>(0);
    {
        auto const subscription = publisher.observe("entry", [held](Change const&) {});
        EXPECT_EQ(held.use_count(), 2);
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(Subscription, EndsTheOldObservationWhenANewOneIsAssigned) {
    Publisher publisher;
    Heard heard;
    auto kept = publisher.observe("entry", noteIn(heard, "old"));
    auto moved = publisher.observe("entry", noteIn(heard, "new"));
    kept = std::move(moved);
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, Heard{"new:entry:1"});
    auto& same = kept;
    kept = std::move(same);
    publisher.publishChangeRecursive("entry", 2);
    EXPECT_EQ(heard, (Heard{"new:entry:1", "new:entry:2"}));
    kept = Subscription();
    publisher.publishChangeRecursive("entry", 3);
    EXPECT_EQ(heard.size(), 2u);
}

TEST(Subscription, GoesOnAfterItIsMoved) {
    Publisher publisher;
    Heard heard;
    std::vector<Subscription> subscriptions;
    for (int i = 0; i < 5; ++i)
        subscriptions.push_back(publisher.observe("entry", noteIn(heard, std::to_string(i))));
    publisher.publishChangeRecursive("entry", 1);
    EXPECT_EQ(heard, (Heard{"0:entry:1", "1:entry:1", "2:entry:1", "3:entry:1", "4:entry:1"}));
}

}  // namespace
