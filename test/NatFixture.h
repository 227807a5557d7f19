#pragma once

#include <array>
#include <vector>

#include "NerioSwitchTable/NerioTableNatDynMatch.h"
#include "NerioSwitchTable/NerioTableNatMatch.h"
#include "NerioSwitchTable/NerioTableNatRewrite.h"
#include "PackedWords.h"
#include "SwitchFixture.h"

namespace NerioTest {

inline Lanvo::IpAddr ip(U32 a, U32 b, U32 c, U32 d) {
    return Lanvo::IpAddr::fromHostOrder(a << 24 | b << 16 | c << 8 | d);
}

/** A NAT table of some pipeline on a chip of any version. */
template <class Table>
class NatFixture : public TableFixture<Table> {
protected:
    using Key = typename Table::Key;
    using Result = typename Table::Result;
    using Item = typename Table::Item;
    using Words = std::array<U32, 8>;
    static constexpr auto programmed = NerioSwitchApi::EntryProgrammedStatus::entryProgrammed;

    using Factory = Belmo::Ptr<Table> (*)(Belmo::String const&, U8);

    explicit NatFixture(Factory factory)
        : TableFixture<Table>([this, factory] { return factory("nat", pipeline_); }) {}

    void apiIs(U16 major, U16 minor = 0) { this->profile().hwApi = {major, minor}; }
    Table& startTable(U8 pipeline = 0) {
        pipeline_ = pipeline;
        return this->start();
    }
    /** Chips have as many pipelines, two to each processor. */
    void pipelinesAre(U16 count) { this->profile().numPipelines = count; }

    Belmo::Ptr<Item> itemOf(Key const& key, Result const& result = {}) {
        auto const item = this->table().createHashEntry(key, false);
        item->resultIs(result);
        return item;
    }
    /** What the helper makes of a buffer for a key with a result in that place. */
    std::vector<U32> row(Key const& key, Result const& result, Dovra::Cuckoo::CuckooLocation location = {},
                         Words words = {}) {
        this->table().helper()->setHwBuffer(itemOf(key, result), location,
                                            reinterpret_cast<U8*>(words.data()));
        return {words.begin(), words.end()};
    }
    /** What a row of the shadow with those words reads back as. */
    Belmo::Ptr<Item> decoded(std::vector<U32> const& words) {
        this->shadow().store(5, std::span(words).first(this->table().hashConvertor()->entryWords()));
        return Belmo::ptrCast<Item>(this->table().helper()->decodeHwEntry(5));
    }
    bool isProgrammed(Key const& key) {
        auto const& status = *this->table().tableStatus();
        return status.entryStatusHas(key) && status.entryStatus(key).status() == programmed;
    }

private:
    U8 pipeline_ = 0;
};

}  // namespace NerioTest
