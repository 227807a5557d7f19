#include <gtest/gtest.h>
#include <sstream>

#include "Belmo/Exceptions.h"
#include "NerioSwitchApi/EntryProgrammedStatus.h"
#include "Sorn/Text.h"

#include "NerioSwitchTable/NerioTableHashTest.h"

namespace {

using NerioSwitchApi::EntryProgrammedStatus;

std::string streamed(EntryProgrammedStatus status) {
    std::ostringstream stream;
    stream << status;
    return stream.str();
}

EntryProgrammedStatus parsed(std::string_view text) {
    Sorn::CharRange range(text);
    auto const status = NerioSwitchApi::sequenceToValue(range);
    range.expectEnd();
    return status;
}

TEST(EntryProgrammedStatusTest, ZeroIsInHardwareAndOneIsNot) {
    EXPECT_EQ(static_cast<int>(EntryProgrammedStatus::entryProgrammed), 0);
    EXPECT_EQ(static_cast<int>(EntryProgrammedStatus::entryProgrammingFailed), 1);
}

TEST(EntryProgrammedStatusTest, StreamsItsNameAndReadsItBack) {
    for (auto const status :
         {EntryProgrammedStatus::entryProgrammed, EntryProgrammedStatus::entryProgrammingFailed})
        EXPECT_EQ(parsed(streamed(status)), status);
    EXPECT_EQ(streamed(EntryProgrammedStatus::entryProgrammingFailed), "entryProgrammingFailed");
    EXPECT_THROW(parsed("entryLost"), Belmo::DeserializationException);
}

TEST(EntryProgrammedStatusTest, AStatusRecordReadsBackFromItsText) {
    using NerioSwitchTable::TestEntryStatus;
    auto const record = TestEntryStatus()
                            .keyIs(77)
                            .statusIs(EntryProgrammedStatus::entryProgrammingFailed)
                            .lastHitIs(Belmo::Duration(2.5));
    for (auto const& each : {record, TestEntryStatus()}) {
        auto const text = Sorn::text(each);
        Sorn::CharRange whole(text);
        EXPECT_EQ(Sorn::parse<TestEntryStatus>(whole), each) << text;
    }
}

}  // namespace
