#pragma once

#include <cstring>
#include <vector>

#include "NatFixture.h"

namespace NerioTest {

/** A table of static matches, with keys and a result for it. */
class NatMatchFixture : public NatFixture<NerioSwitchTable::NatMatchTable> {
protected:
    NatMatchFixture() : NatFixture(NerioSwitchTable::natMatchTableFactory) {}

    static NerioSwitchTable::NatMatchResult result() {
        return NerioSwitchTable::NatMatchResult()
            .validIs(true)
            .protoIs(2)
            .natSessionIdIs(0x1ABCD)
            .useAclIs(true)
            .trapToCpuIs(true)
            .l3LagIndexIs(0x25)
            .rewriteIndexIs(0x2A);
    }
    static NerioSwitchTable::NatMatchKey sourceKey() {
        return NerioSwitchTable::NatMatchKey()
            .natTypeIs(NerioSwitch::NatType::sourcePort)
            .sipIs(ip(10, 1, 2, 3))
            .sportIs(0x1234);
    }
    static NerioSwitchTable::NatMatchKey filteredKey(Lanvo::Prefix const& filter) {
        return NerioSwitchTable::NatMatchKey()
            .natTypeIs(NerioSwitch::NatType::destinationPort)
            .dipIs(ip(192, 0, 2, 129))
            .dportIs(0xBEEF)
            .filterPfxIs(filter)
            .ingressProfileIdIs(0x15);
    }
    U64 fieldOf(std::vector<U32> const& words, U32 first, U32 width) {
        return bitStreamGet(words.data(), first, first + width - 1);
    }
    /** The words that the chip hashes, of 96 bits. */
    std::vector<U32> inputWords(NerioSwitchTable::NatMatchKey const& key) {
        auto const input = itemOf(key)->hashInput();
        std::vector<U32> words(3);
        std::memcpy(words.data(), input.bytes.data(), 12);
        return words;
    }
    /** What a key reads back as from the row that it is laid out as. */
    NerioSwitchTable::NatMatchKey keyBack(NerioSwitchTable::NatMatchKey const& key) {
        auto const back = decoded(row(key, result()))->key();
        table().cachedItemDel(back);
        return back;
    }
};

}  // namespace NerioTest
