#pragma once

#include <array>
#include <initializer_list>
#include <vector>

#include "NerioSwitchTable/NerioTableAclHashes.h"
#include "PackedWords.h"
#include "SwitchFixture.h"

namespace NerioTest {

/** A kind of chip: its hardware API version, and whether every pipeline has an ACL processor of its own. */
struct AclChip {
    U16 verMajor;
    bool single;

    friend std::ostream& operator<<(std::ostream& stream, AclChip const& chip) {
        return stream << "version " << chip.verMajor << (chip.single ? ", single" : ", shared");
    }
};

/** Two processors: for two pipelines and 4096 rows per way, or for four pipelines and 2048 rows. */
inline void aclChipIs(NerioSwitch::ProfileInfo& profile, AclChip const& chip) {
    profile.hwApi = {chip.verMajor, 0};
    auto& layout = profile.layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl];
    if (chip.single) {
        layout = {2, 2, 2, 4096, {0, 1}, {0, 1}};
    } else {
        layout = {2, 4, 2, 2048, {0, 0, 1, 1}, {0, 0, 1, 1}};
    }
}

inline Lanvo::Prefix prefixOf(std::initializer_list<U32> bytes, U8 length) {
    U32 address = 0;
    for (U32 const byte : bytes)
        address = address << 8 | byte;
    return {Lanvo::IpAddr::fromHostOrder(address), length};
}

inline NerioSwitch::HwAclRule ruleOf(U32 priority, bool flag = false, U32 counter = 0, U32 rangeId = 8) {
    return NerioSwitch::HwAclRule().priorityIs(priority).ruleFlagIs(flag).counterIs(counter).rangeIdIs(
        rangeId);
}

inline NerioSwitch::AclHashResult resultOf(NerioSwitch::HwAclRule const& first,
                                           NerioSwitch::HwAclRule const& second = {}) {
    return NerioSwitch::AclHashResult().ruleIs(0, first).ruleIs(1, second);
}

/** The bits of a packed key from `first` to `last`, to stand at the bottom of a row. */
inline std::vector<PackedBits> bitsOf(std::vector<U32> const& key, std::size_t first, std::size_t last) {
    std::vector<PackedBits> bits;
    for (std::size_t bit = first; bit <= last; ++bit)
        bits.push_back({bit - first, 1, key.at(bit / 32) >> (bit % 32) & 1});
    return bits;
}

/** One ACL table of pipeline 0 (unless told otherwise) on a chip of some kind. */
class AclTableFixture : public TableFixture<NerioSwitchTable::AclHashTable> {
protected:
    using Words = std::array<U32, 8>;

    AclTableFixture()
        : TableFixture(
              [this] { return NerioSwitchTable::aclHashTableFactory("rules", pipeline_, physTableIdx_); }) {}

    void chipIs(AclChip const& chip) { aclChipIs(profile(), chip); }
    NerioSwitchTable::AclHashTable& startTable(U8 physTableIdx, U8 pipeline = 0) {
        physTableIdx_ = physTableIdx;
        pipeline_ = pipeline;
        return start();
    }
    NerioSwitchTable::AclHashHelper& helper() {
        return static_cast<NerioSwitchTable::AclHashHelper&>(*table().helper());
    }

    /** What the helper makes of a buffer for a key with a result in that place. */
    Words row(NerioSwitch::AclHashKey const& key, NerioSwitch::AclHashResult const& result,
              Dovra::Cuckoo::CuckooLocation location = {}, Words words = {}) {
        auto const item = table().createHashEntry(key, false);
        item->resultIs(result);
        helper().setHwBuffer(item, location, reinterpret_cast<U8*>(words.data()));
        return words;
    }

    /** What a row of the shadow with those words reads back as. */
    Belmo::Ptr<NerioSwitchTable::AclHashTableCuckooEntry> decoded(Words const& words) {
        shadow().store(5, std::span(words).first<7>());
        return Belmo::ptrCast<NerioSwitchTable::AclHashTableCuckooEntry>(helper().decodeHwEntry(5));
    }

private:
    U8 physTableIdx_ = 0;
    U8 pipeline_ = 0;
};

/** A test of chips of several kinds. */
class AclChipTest : public AclTableFixture, public ::testing::WithParamInterface<AclChip> {
protected:
    AclChipTest() { chipIs(GetParam()); }

    U16 version() const { return GetParam().verMajor; }
    bool single() const { return GetParam().single; }
};

/** Chips of the versions from `first` to `last`, in both modes. */
inline std::vector<AclChip> aclChips(U16 first = 2, U16 last = 17) {
    std::vector<AclChip> chips;
    for (U16 const version : std::initializer_list<U16>{2, 3, 4, 5, 6, 17}) {
        if (version < first || version > last) continue;
        chips.push_back({version, true});
        chips.push_back({version, false});
    }
    return chips;
}

inline std::string aclChipName(::testing::TestParamInfo<AclChip> const& info) {
    return "Version" + std::to_string(info.param.verMajor) + (info.param.single ? "Single" : "Shared");
}

}  // namespace NerioTest
