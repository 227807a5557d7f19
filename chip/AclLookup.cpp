#include "chip/AclLookup.h"

#include <fmt/format.h>
#include <span>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"
#include "chip/MemoryMap.h"

namespace Chip {

namespace {

constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;
constexpr U8 ways = 2;

/** How a physical table's keys are packed. */
struct KeyLayout {
    U8 table;
    U8 firstCombination;
    /** The key's length, without and with the mask types of addresses. */
    U8 bits;
    U8 bitsWithMasks;
    /** Words that the parity of a row covers. */
    U8 parityWords;
    BitRange combination;
    BitRange aclId{};
    BitRange keyFlag{};
    BitRange vrf{};
    BitRange first{};
    BitRange second{};
    BitRange protocol{};
    BitRange port{};
    BitRange firstMask{};
    BitRange secondMask{};
};

constexpr std::array<KeyLayout, 4> keyLayouts{{
    {.table = 0,
     .firstCombination = 0,
     .bits = 59,
     .bitsWithMasks = 61,
     .parityWords = 3,
     .combination = {4, 3},
     .aclId = {0, 4},
     .second = {7, 32},
     .protocol = {39, 4},
     .port = {43, 16},
     .secondMask = {59, 2}},
    {.table = 1,
     .firstCombination = 7,
     .bits = 58,
     .bitsWithMasks = 60,
     .parityWords = 3,
     .combination = {4, 2},
     .aclId = {0, 4},
     .first = {6, 32},
     .protocol = {38, 4},
     .port = {42, 16},
     .firstMask = {58, 2}},
    {.table = 2,
     .firstCombination = 11,
     .bits = 90,
     .bitsWithMasks = 94,
     .parityWords = 4,
     .combination = {4, 2},
     .aclId = {0, 4},
     .first = {38, 32},
     .second = {6, 32},
     .protocol = {70, 4},
     .port = {74, 16},
     .firstMask = {92, 2},
     .secondMask = {90, 2}},
    {.table = 5,
     .firstCombination = 15,
     .bits = 70,
     .bitsWithMasks = 74,
     .parityWords = 3,
     .combination = {4, 2},
     .keyFlag = {0, 1},
     .vrf = {1, 3},
     .first = {6, 32},
     .second = {38, 32},
     .firstMask = {72, 2},
     .secondMask = {70, 2}},
}};

/** Combinations that do not look at the protocol, a bit each; their keys have ones in its place. */
constexpr U32 anyProtocol = 1u << 3 | 1u << 7 | 1u << 11;
/** Combinations that tell the port 0 from any port. */
constexpr U32 zeroPort = 1u << 1 | 1u << 2 | 1u << 5 | 1u << 6 | 1u << 9 | 1u << 10 | 1u << 13 | 1u << 14;
constexpr U32 absentAddress = 0xFFFFFFFF;
constexpr U16 anyPort = 0xFFFF;

struct KeyAddress {
    U32 bits;
    U32 maskType;
};

/** An address as keys hold it; the length is folded into bits that it leaves free where keys have masks. */
KeyAddress keyAddress(U32 address, U32 length, bool withMasks) {
    U32 const maskType = length > 30 ? 32 - length : length > 26 ? 2 : 3;
    U32 const masked = length == 0 ? 0 : address >> (32 - length) << (32 - length);
    if (masked == 0) return {absentAddress, maskType};
    if (!withMasks || maskType < 2) return {masked, maskType};
    return {masked | (maskType == 2 ? length - 27 : length), maskType};
}

U32 keyPort(std::optional<U16> port, U8 combination) {
    if (!port) return anyPort;
    return *port == 0 && (zeroPort >> combination & 1) == 0 ? anyPort : *port;
}

/** Refuses fields that do not fit. What a key has no room for may be anything. */
void check(KeyLayout const& layout, AclFields const& fields) {
    auto const within = [](BitRange place, char const* what, U32 value, U32 most) {
        if (place.width > 0 && value > most)
            throw Belmo::RangeException(fmt::format("ACL lookup: {} {} is above {}", what, value, most));
    };
    within(layout.aclId, "ACL number", fields.aclId, 15);
    within(layout.protocol, "protocol", fields.protocol, 15);
    within(layout.first, "address length", fields.firstLength, 32);
    within(layout.second, "address length", fields.secondLength, 32);
}

/** The position in `keyLayouts` of a combination's physical table. */
std::size_t layoutOf(U8 combination) {
    if (combination > 17)
        throw Belmo::RangeException(fmt::format("ACL lookup: combination {} is above 17", combination));
    std::size_t layout = keyLayouts.size() - 1;
    while (combination < keyLayouts[layout].firstCombination)
        --layout;
    return layout;
}

/** The key, or nothing for fields that no row in use can answer. */
std::optional<BitRow> keyOf(KeyLayout const& layout, AclFields const& fields, U8 combination,
                            bool withMasks) {
    U32 const protocol = (anyProtocol >> combination & 1) != 0 ? 15 : fields.protocol;
    if (layout.protocol.width > 0 && protocol == 0) return std::nullopt;

    BitRow key;
    auto const putAddress = [&](BitRange place, BitRange mask, U32 address, U8 length) {
        if (place.width == 0) return;
        auto const packed = keyAddress(address, length, withMasks);
        key.put(place, packed.bits);
        if (withMasks) key.put(mask, packed.maskType);
    };
    key.put(layout.combination, U32{combination} - layout.firstCombination);
    key.put(layout.aclId, fields.aclId);
    key.put(layout.keyFlag, fields.keyFlag);
    key.put(layout.vrf, fields.vrf);
    putAddress(layout.first, layout.firstMask, fields.firstAddress, fields.firstLength);
    putAddress(layout.second, layout.secondMask, fields.secondAddress, fields.secondLength);
    key.put(layout.protocol, protocol);
    key.put(layout.port, keyPort(fields.port, combination));
    return key;
}

/** Where a rule's bits are, from the end of the stored key on. */
struct RuleLayout {
    BitRange priority;
    /** Without one the flag is always set. */
    BitRange flag{};
    BitRange counter{};
    BitRange range{};
    /** The field holds this less the priority: the lower the number, the higher the field. */
    U32 lowestPriority = 64;
};

/** Below version 4: a rule of each of two chains. */
constexpr RuleLayout firstChain{.priority = {0, 6}, .flag = {6, 1}, .counter = {12, 11}};
constexpr RuleLayout secondChain{.priority = {7, 4}, .flag = {11, 1}, .lowestPriority = 16};
/** From version 4 on: a rule in one of two places. */
constexpr RuleLayout withoutRange{.priority = {0, 6}, .flag = {6, 1}, .counter = {7, 12}};
constexpr RuleLayout withRange{.priority = {22, 6}, .flag = {28, 1}, .counter = {29, 12}, .range = {19, 3}};
/** Of physical table 5, which has no counters. */
constexpr RuleLayout flagged{.priority = {0, 6}, .flag = {6, 1}};
constexpr RuleLayout unflagged{.priority = {0, 6}};

AclRule ruleOf(RuleLayout const& layout, BitRow const& result) {
    AclRule rule;
    auto const priority = static_cast<U32>(result.at(layout.priority));
    if (priority != 0) rule.priority = static_cast<U8>(layout.lowestPriority - priority);
    rule.flag = layout.flag.width == 0 || result.at(layout.flag) != 0;
    rule.counter = static_cast<U16>(result.at(layout.counter));
    if (layout.range.width > 0) rule.range = static_cast<U8>(result.at(layout.range));
    return rule;
}

AclHit hitOf(HashPlace place, KeyLayout const& layout, BitRow const& result, U32 version) {
    if (layout.table == 5) return {place, ruleOf(version == 2 ? flagged : unflagged, result), std::nullopt};
    if (version < 4) return {place, ruleOf(firstChain, result), ruleOf(secondChain, result)};
    bool const ranged = result.at(withoutRange.priority) == 0;
    return {place, ruleOf(ranged ? withRange : withoutRange, result), std::nullopt};
}

std::span<U32 const> wordsAt(IndirectMemory const& memory, HashPlace place) {
    return memory.row(place.way * memory.description().rowsPerWay + place.row);
}

/**
 * The first way whose row has right parity and satisfies `matches`. A row of wrong parity is reported,
 * whichever of the ways it is in.
 */
template <class Matches>
std::optional<HashPlace> matchingPlace(IndirectMemory const& memory, NerioSwitch::CrcHashes rows,
                                       U32 parityWords, WrongParity* wrongParity, Matches const& matches) {
    std::optional<HashPlace> found;
    if (wrongParity != nullptr) *wrongParity = {};
    for (U8 way = 0; way < ways; ++way) {
        HashPlace const place{way, rows.way(way)};
        if (place.row >= memory.description().rowsPerWay) continue;
        auto const words = wordsAt(memory, place);
        if (!evenParity(words.first(parityWords))) {
            if (wrongParity != nullptr) (*wrongParity)[way] = true;
        } else if (!found && matches(words)) {
            found = place;
        }
    }
    return found;
}

}  // namespace

AclLookup::AclLookup(SimulatedChip const& chip, NerioSwitch::ProfileInfo const& profile)
    : version_(profile.hwApi.majorVersion()), processorPerPipeline_(aclProcessorPerPipeline(profile)) {
    static_assert(tableCount == keyLayouts.size());
    if (version_ < 2)
        throw Belmo::RangeException("ACL lookup: no rows are known of hardware API " + profile.hwApi.text());
    for (U32 pipeline = 0; pipeline < profile.numPipelinesOfTable(acl); ++pipeline) {
        auto& tables = memories_.emplace_back();
        for (std::size_t i = 0; i < tables.size(); ++i) {
            tables[i] = &chip.indirectMemory(fmt::format("ingress/processor_acl[{}]/table{}/pipeline{}",
                                                         profile.pipeToProcessorId(pipeline, acl),
                                                         keyLayouts[i].table, pipeline));
        }
    }
}

IndirectMemory const& AclLookup::memory(U8 combination, U32 pipeline) const {
    if (pipeline >= memories_.size())
        throw Belmo::RangeException(fmt::format("ACL lookup: there is no pipeline {}", pipeline));
    return *memories_[pipeline][layoutOf(combination)];
}

std::optional<AclHit> AclLookup::find(AclFields const& fields, U8 combination, U32 pipeline,
                                      WrongParity* wrongParity) const {
    auto const& layout = keyLayouts[layoutOf(combination)];
    check(layout, fields);
    auto const& rowMemory = memory(combination, pipeline);
    bool const withMasks = tellsLengths();
    auto const key = keyOf(layout, fields, combination, withMasks);
    if (!key) {
        if (wrongParity != nullptr) *wrongParity = {};
        return std::nullopt;
    }
    U8 const keyBits = withMasks ? layout.bitsWithMasks : layout.bits;
    U32 const impliedBits = processorPerPipeline_ ? 12 : 11;
    U32 const storedBits = keyBits - impliedBits;
    auto const bytes = key->bytes();
    auto const rows = processorPerPipeline_ ? NerioSwitch::crc12Hashes(bytes.data(), keyBits)
                                            : NerioSwitch::crc11Hashes(bytes.data(), keyBits);
    auto const stored = key->from(impliedBits);
    auto const place =
        matchingPlace(rowMemory, rows, layout.parityWords, wrongParity,
                      [&](auto const& words) { return BitRow(words).lowest(storedBits) == stored; });
    if (!place) return std::nullopt;
    return hitOf(*place, layout, BitRow(wordsAt(rowMemory, *place)).from(storedBits), version_);
}

IndirectCounterLookup::IndirectCounterLookup(SimulatedChip const& chip, U32 processor)
    : memory_(&chip.indirectMemory(fmt::format("ingress/processor_acl[{}]/counters", processor))) {}

std::optional<IndirectCounterHit> IndirectCounterLookup::find(U16 key, WrongParity* wrongParity) const {
    BitRow packed;
    packed.put({0, 16}, key);
    auto const bytes = packed.bytes();
    auto const rows = NerioSwitch::crc11Hashes(bytes.data(), 16);
    auto const place = matchingPlace(*memory_, rows, 1, wrongParity, [&](auto const& words) {
        return words[0] != 0 && BitRow(words).at({0, 5}) == key >> 11u;
    });
    if (!place) return std::nullopt;
    return IndirectCounterHit{*place, static_cast<U16>(BitRow(wordsAt(*memory_, *place)).at({5, 12}))};
}

}  // namespace Chip
