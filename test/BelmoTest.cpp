#include <gtest/gtest.h>
#include <vector>

#include "Belmo/Publisher.h"

namespace {

TEST(Publisher, TellsObserversOfTheAttributeAndOfTheNode) {
    Belmo::Publisher publisher;
    std::vector<int> ofEntry;
    int ofAll = 0;
    auto const first = publisher.observe(
        "entry", [&](Belmo::Change const& change) { ofEntry.push_back(*change.key.as<int>()); });
    auto const second = publisher.observeAll([&](Belmo::Change const&) { ++ofAll; });
    publisher.publishChangeRecursive("entry", 7);
    publisher.publishChangeRecursive("status", 8);
    EXPECT_EQ(ofEntry, std::vector<int>{7});
    EXPECT_EQ(ofAll, 2);
}

}  // namespace
