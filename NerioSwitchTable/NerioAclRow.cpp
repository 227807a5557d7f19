#include "NerioSwitchTable/NerioAclRow.h"

#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <span>
#include <tuple>
#include <utility>

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"

#include "NerioSwitchTable/Address.h"
#include "NerioSwitchTable/BitImage.h"

namespace NerioSwitchTable {

using NerioSwitch::AclHashKey;
using NerioSwitch::AclHashResult;
using NerioSwitch::HwAclCombinationId;
using NerioSwitch::HwAclPriority;
using NerioSwitch::HwAclRangeId;
using NerioSwitch::HwAclRule;

namespace {

constexpr std::size_t numPhysTables = 4;
using KeyLayouts = std::array<AclKeyLayout, numPhysTables>;

/** With the mask types of addresses, which stand last. */
constexpr KeyLayouts maskedKeys{
    AclKeyLayout{.physTableIdx = 0,
                 .firstCombination = 0,
                 .length = 61,
                 .aclId{"aclId", 0, 4},
                 .combination{"combination", 4, 3},
                 .secondAddress{"secondPrefix", 7, 32},
                 .protocol{"protocol", 39, 4},
                 .port{"port", 43, 16},
                 .secondMaskType{"secondMaskType", 59, 2}},
    AclKeyLayout{.physTableIdx = 1,
                 .firstCombination = 7,
                 .length = 60,
                 .aclId{"aclId", 0, 4},
                 .combination{"combination", 4, 2},
                 .firstAddress{"firstPrefix", 6, 32},
                 .protocol{"protocol", 38, 4},
                 .port{"port", 42, 16},
                 .firstMaskType{"firstMaskType", 58, 2}},
    AclKeyLayout{.physTableIdx = 2,
                 .firstCombination = 11,
                 .length = 94,
                 .aclId{"aclId", 0, 4},
                 .combination{"combination", 4, 2},
                 .firstAddress{"firstPrefix", 38, 32},
                 .secondAddress{"secondPrefix", 6, 32},
                 .protocol{"protocol", 70, 4},
                 .port{"port", 74, 16},
                 .firstMaskType{"firstMaskType", 92, 2},
                 .secondMaskType{"secondMaskType", 90, 2}},
    AclKeyLayout{.physTableIdx = 5,
                 .firstCombination = 15,
                 .length = 74,
                 .absentLength = 0,
                 .keyFlag{"keyFlag", 0, 1},
                 .vrfId{"vrfId", 1, 3},
                 .combination{"combination", 4, 2},
                 .firstAddress{"firstPrefix", 6, 32},
                 .secondAddress{"secondPrefix", 38, 32},
                 .firstMaskType{"firstMaskType", 72, 2},
                 .secondMaskType{"secondMaskType", 70, 2}},
};

constexpr KeyLayouts withoutMaskTypes(KeyLayouts layouts) {
    for (auto& layout : layouts) {
        for (auto* const field : {&layout.firstMaskType, &layout.secondMaskType}) {
            layout.length = static_cast<U8>(layout.length - field->width);
            *field = {};
        }
    }
    return layouts;
}

constexpr KeyLayouts plainKeys = withoutMaskTypes(maskedKeys);

constexpr KeyLayouts const& keyLayouts(bool hasFilterMask) {
    return hasFilterMask ? maskedKeys : plainKeys;
}

/** The fields of a key lie side by side and fill its length. */
constexpr bool keyIsFilled(AclKeyLayout const& layout) {
    auto const fields = layout.fields();
    U32 bits = 0;
    for (auto const& field : fields)
        bits += field.width;
    return bits == layout.length && fieldsFit(fields, 3) && fieldsDisjoint(fields);
}
static_assert(std::all_of(maskedKeys.begin(), maskedKeys.end(), keyIsFilled));
static_assert(std::all_of(plainKeys.begin(), plainKeys.end(), keyIsFilled));

/** For each combination the position in `KeyLayouts` of the physical table that it belongs to. */
constexpr auto tablesOfCombinations = [] {
    std::array<U8, std::size_t{HwAclCombinationId::last} + 1> tables{};
    for (std::size_t combination = 0; combination < tables.size(); ++combination) {
        for (U8 table = 1; table < numPhysTables; ++table) {
            if (combination >= maskedKeys[table].firstCombination) tables[combination] = table;
        }
    }
    return tables;
}();

constexpr std::size_t tableOf(HwAclCombinationId combination) {
    return tablesOfCombinations[combination.value()];
}

/** The key bits that the row's number implies, kept in the shadow, and behind them the stored ones. */
constexpr std::array<AclRowLayout::KeyPart, 3> keyPartsOf(U8 length, U8 rowBits) {
    auto const stored = static_cast<U8>(length - rowBits);
    U8 const lower = std::min(stored, BitField::maxWidth);
    auto const upper = static_cast<U8>(stored - lower);
    return {{{{"implied", 0, rowBits}, {"implied", 32 * AclRowLayout::shadowWord, rowBits}},
             {{"stored", rowBits, lower}, {"stored", 0, lower}},
             {{"stored", static_cast<U16>(rowBits + lower), upper}, {"stored", lower, upper}}}};
}

/** Makes fields from a bit on. */
struct FieldsFrom {
    U32 base;

    constexpr BitField operator()(char const* name, U32 bit, U8 width) const {
        return {name, static_cast<U16>(base + bit), width};
    }
};

/** A rule for each of two chains. The counter is read with a bit that is never written. */
constexpr void setTwoChains(AclRowLayout& layout, FieldsFrom at) {
    layout.forms.fill({.priority = at("priority", 0, 6),
                       .ruleFlag = at("ruleFlag", 6, 1),
                       .counter = at("counter", 12, 11),
                       .counterAsRead = at("counter", 12, 12)});
    layout.secondChain = {.priority = at("secondPriority", 7, 4), .ruleFlag = at("secondRuleFlag", 11, 1)};
    layout.parity = at("parity", 24, 1);
}

/** One rule, at one of two places by whether it has a port range; the priority at the other place is 0. */
constexpr void setTwoForms(AclRowLayout& layout, FieldsFrom at) {
    layout.forms = {AclRuleFields{.priority = at("priority", 0, 6),
                                  .ruleFlag = at("ruleFlag", 6, 1),
                                  .counter = at("counter", 7, 12),
                                  .counterAsRead = at("counter", 7, 12),
                                  .zero = at("rangePriority", 22, 6)},
                    AclRuleFields{.priority = at("rangePriority", 22, 6),
                                  .ruleFlag = at("rangeRuleFlag", 28, 1),
                                  .counter = at("rangeCounter", 29, 12),
                                  .counterAsRead = at("rangeCounter", 29, 12),
                                  .rangeId = at("rangeId", 19, 3),
                                  .zero = at("priority", 0, 6)}};
    layout.parity = at("parity", 41, 1);
}

/** Physical table 5: one rule without a counter, and since version 3 without its flag. */
constexpr void setBareRule(AclRowLayout& layout, FieldsFrom at, bool hasRuleFlag) {
    AclRuleFields rule{.priority = at("priority", 0, 6)};
    if (hasRuleFlag) {
        rule.ruleFlag = at("ruleFlag", 6, 1);
        rule.zero = at("zero", 7, 2);
        layout.parity = at("parity", 9, 1);
    } else {
        rule.zero = at("zero", 6, 2);
        layout.parity = at("parity", 8, 1);
    }
    layout.forms.fill(rule);
}

constexpr AclRowLayout rowLayout(AclKeyLayout const& key, AclRowFormat const& format) {
    AclRowLayout layout{.key = key, .keyParts = keyPartsOf(key.length, format.rowBits())};
    FieldsFrom const behindKey{static_cast<U32>(key.length - format.rowBits())};
    if (key.physTableIdx == 5) {
        setBareRule(layout, behindKey, format.verMajor <= 2);
    } else if (format.verMajor <= 3) {
        setTwoChains(layout, behindKey);
    } else {
        setTwoForms(layout, behindKey);
    }
    layout.parityWords = key.physTableIdx == 2 ? 4 : 3;
    return layout;
}

constexpr bool rowFits(AclRowLayout const& layout) {
    bool fits = true;
    for (auto const& form : layout.forms) {
        std::array const fields{layout.keyParts[1].row,
                                layout.keyParts[2].row,
                                form.priority,
                                form.ruleFlag,
                                form.counter,
                                form.rangeId,
                                form.zero,
                                layout.parity,
                                layout.secondChain.priority,
                                layout.secondChain.ruleFlag};
        fits = fits && fieldsFit(fields, layout.parityWords) && fieldsDisjoint(fields);
    }
    return fits;
}

constexpr bool allRowsFit() {
    bool fit = true;
    for (U16 verMajor = 2; verMajor <= 4; ++verMajor) {
        for (bool const single : {false, true}) {
            AclRowFormat const format{verMajor, single};
            for (auto const& key : keyLayouts(format.hasFilterMask()))
                fit = fit && rowFits(rowLayout(key, format));
        }
    }
    return fit;
}
static_assert(allRowsFit());

constexpr AclControlFields controlFields(bool singleAclPipeMode) {
    constexpr FieldsFrom at{32 * AclRowLayout::controlWord};
    AclControlFields fields{.row = at("row", 0, singleAclPipeMode ? 12 : 11),
                            .table = at("table", singleAclPipeMode ? 12 : 11, 1),
                            .physTableIdx = at("physTableIdx", 13, 3),
                            .writeStrobe = at("writeStrobe", 18, 1)};
    (singleAclPipeMode ? fields.zero : fields.pipeline) = at("pipeline", 16, 1);
    return fields;
}

/** Whether keys of the combination tell the port 0 from any port. */
constexpr bool portIsZeroInUse(HwAclCombinationId combination) {
    auto const kind = combination.value() & 0xF3;
    return kind == 1 || kind == 2;
}

constexpr bool looksAtProtocol(HwAclCombinationId combination) {
    return combination != 3 && combination != 7 && combination != 11;
}

/** An address of zero is absent, whatever its length: that is asked before the length is folded in. */
U32 packedAddress(Lanvo::Prefix const& prefix, bool hasFilterMask, U8& maskType) {
    U32 const folded = encodeFilterPfx(prefix, maskType);
    U32 const address = prefix.address().hostOrder();
    if (address == 0) return AclKeyLayout::absentAddress;
    return hasFilterMask ? folded : address;
}

U32 unpackedAddress(BitField const& field, AclPackedKey const& packed) {
    auto const address = static_cast<U32>(field.get(packed.data()));
    return address == AclKeyLayout::absentAddress ? 0 : address;
}

Lanvo::Prefix unpackedPrefix(BitField const& field, BitField const& maskType, U8 absentLength,
                             AclPackedKey const& packed) {
    if (field.width == 0) return {};
    U32 address = unpackedAddress(field, packed);
    U8 length = address == 0 ? absentLength : U8{32};
    if (maskType.width != 0) length = stripMaskLen(&address, static_cast<U8>(maskType.get(packed.data())));
    return {Lanvo::IpAddr::fromHostOrder(address), length};
}

/** Those of the fields that a layout does not lack. */
template <std::size_t size>
std::vector<BitField> present(std::array<BitField, size> const& fields) {
    std::vector<BitField> all(fields.begin(), fields.end());
    std::erase_if(all, [](BitField const& field) { return field.width == 0; });
    return all;
}

/** Adds a field of a key: in two pieces, if part of it is implied by the row's number. */
void addKeyField(BitField const& field, std::span<AclRowLayout::KeyPart const> parts,
                 std::vector<NerioSwitchApi::RowField>& fields) {
    std::vector<NerioSwitchApi::RowField> pieces;
    for (auto const& part : parts) {
        U32 const first = std::max<U32>(field.first, part.key.first);
        U32 const end = std::min(field.end(), part.key.end());
        if (first >= end) continue;
        U32 const place = first - part.key.first + part.row.first;
        if (!pieces.empty() && pieces.back().end() == place) {
            pieces.back().width += end - first;
        } else {
            pieces.emplace_back(field.name, place, end - first);
        }
    }
    if (pieces.size() > 1) {
        pieces.front().name += "Low";
        pieces.back().name += "High";
    }
    std::ranges::move(pieces, std::back_inserter(fields));
}

/** The lower a priority's number, the higher the value in hardware; none is 0. */
U64 hwPriority(BitField const& field, HwAclPriority priority) {
    return priority == HwAclPriority() ? 0 : (U64{1} << field.width) - priority.value();
}

HwAclPriority priorityIn(BitField const& field, U32 const* row) {
    U64 const value = field.get(row);
    return value == 0 ? HwAclPriority() : HwAclPriority((U64{1} << field.width) - value);
}

/** A rule whose flag is not stored is one whose flag is set. */
HwAclRule ruleIn(AclRuleFields const& fields, U32 const* row) {
    HwAclRule rule;
    rule.priorityIs(priorityIn(fields.priority, row))
        .ruleFlagIs(fields.ruleFlag.width == 0 || fields.ruleFlag.get(row) != 0)
        .counterIs(fields.counterAsRead.get(row));
    if (fields.rangeId.width != 0) rule.rangeIdIs(fields.rangeId.get(row));
    return rule;
}

/*
 * What runs for every entry. Layouts are data, but the few that there are are known here: each has functions
 * of its own, in which the compiler sees every position.
 */

template <bool hasFilterMask, std::size_t table>
AclPackedKey packKey(AclHashKey const& wanted) {
    static constexpr AclKeyLayout layout = keyLayouts(hasFilterMask)[table];
    auto const asked = wanted.combination();
    bool const isZero = wanted.portIsZero() && portIsZeroInUse(asked);
    U8 firstMask = 0;
    U8 secondMask = 0;
    BitImage<std::tuple_size_v<AclPackedKey>> image;
    image.put(layout.keyFlag, wanted.keyFlag() ? 1 : 0);
    image.put(layout.vrfId, wanted.vrfId().value());
    image.put(layout.aclId, wanted.aclId());
    image.put(layout.combination, asked.value() - U64{layout.firstCombination});
    if constexpr (layout.firstAddress.width != 0)
        image.put(layout.firstAddress, packedAddress(wanted.firstPrefix(), hasFilterMask, firstMask));
    if constexpr (layout.secondAddress.width != 0)
        image.put(layout.secondAddress, packedAddress(wanted.secondPrefix(), hasFilterMask, secondMask));
    image.put(layout.protocol,
              looksAtProtocol(asked) ? wanted.protocol().value() : AclKeyLayout::anyProtocol);
    image.put(layout.port, wanted.port() == 0 && !isZero ? AclKeyLayout::anyPort : wanted.port());
    image.put(layout.firstMaskType, firstMask);
    image.put(layout.secondMaskType, secondMask);
    AclPackedKey packed{};
    image.layOver(packed.data());
    return packed;
}

template <bool hasFilterMask, std::size_t... table>
constexpr auto packersOf(std::index_sequence<table...> /*tables*/) {
    return std::array{&packKey<hasFilterMask, table>...};
}
constexpr std::array keyPackers{packersOf<false>(std::make_index_sequence<numPhysTables>()),
                                packersOf<true>(std::make_index_sequence<numPhysTables>())};

using RowImage = BitImage<AclRowLayout::words>;

[[gnu::always_inline]] inline void putRule(AclRuleFields const& fields, HwAclRule const& rule,
                                           RowImage& image) {
    image.put(fields.priority, hwPriority(fields.priority, rule.priority()));
    image.put(fields.ruleFlag, rule.ruleFlag() ? 1 : 0);
    image.put(fields.counter, rule.counter().value());
    image.put(fields.rangeId, rule.rangeId().value());
    image.put(fields.zero, 0);
}

template <U16 verMajor, bool singleAclPipeMode, std::size_t table>
void encodeRow(AclPackedKey const& packed, AclHashResult const& result, U32* row) {
    static constexpr AclRowFormat format{verMajor, singleAclPipeMode};
    static constexpr AclRowLayout layout = rowLayout(keyLayouts(format.hasFilterMask())[table], format);
    RowImage image;
    for (auto const& part : layout.keyParts)
        image.put(part.row, part.key.get(packed.data()));
    if (auto const& rule = result.rule(0); rule.rangeId() == HwAclRangeId::invalid) {
        putRule(layout.forms[0], rule, image);
    } else {
        putRule(layout.forms[1], rule, image);
    }
    putRule(layout.secondChain, result.rule(1), image);
    image.put(layout.parity, 0);
    image.layOver(row);
    layout.parity.set(row, NerioSwitch::parityU32Array(row, layout.parityWords));
}

constexpr U16 firstVersion = 2;
constexpr U16 lastVersion = 4;

template <U16 verMajor, bool singleAclPipeMode, std::size_t... table>
constexpr auto encodersOf(std::index_sequence<table...> /*tables*/) {
    return std::array{&encodeRow<verMajor, singleAclPipeMode, table>...};
}
/** For each version from 2 to 4, which stands for all later ones, and each physical table. */
template <bool singleAclPipeMode>
constexpr std::array rowEncoders{encodersOf<2, singleAclPipeMode>(std::make_index_sequence<numPhysTables>()),
                                 encodersOf<3, singleAclPipeMode>(std::make_index_sequence<numPhysTables>()),
                                 encodersOf<4, singleAclPipeMode>(std::make_index_sequence<numPhysTables>())};
static_assert(lastVersion - firstVersion + 1 == rowEncoders<true>.size());

template <bool singleAclPipeMode>
void setControlWord(Dovra::Cuckoo::CuckooLocation const& location, U8 physTableIdx, U8 pipeline, U32* row) {
    static constexpr AclControlFields fields = controlFields(singleAclPipeMode);
    RowImage image;
    image.put(fields.row, location.row);
    image.put(fields.table, location.table);
    image.put(fields.physTableIdx, physTableIdx);
    image.put(fields.pipeline, pipeline);
    image.put(fields.zero, 0);
    image.put(fields.writeStrobe, 1);
    image.layOver(row);
}

}  // namespace

AclRowFormat aclRowFormat(NerioSwitch::ProfileInfo const& profile) {
    constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;
    return {profile.hwApi.majorVersion(), profile.numProcessors(acl) == profile.numPipelinesOfTable(acl)};
}

AclKeyLayout const& aclKeyLayout(HwAclCombinationId combination, bool hasFilterMask) {
    return keyLayouts(hasFilterMask)[tableOf(combination)];
}

bool AclKeyLayout::isEmpty(AclHashKey const& wanted) const {
    if (aclId.width != 0) return wanted.aclId() == AclHashKey::invalidAclId;
    return wanted.firstPrefix().address().hostOrder() == 0 &&
           wanted.secondPrefix().address().hostOrder() == 0;
}

AclPackedKey AclKeyLayout::pack(AclHashKey const& wanted) const {
    bool const masked = firstMaskType.width + secondMaskType.width != 0;
    return keyPackers[masked ? 1 : 0][tableOf(firstCombination)](wanted);
}

bool AclKeyLayout::isEmpty(AclPackedKey const& packed) const {
    if (protocol.width != 0) return protocol.get(packed.data()) == 0;
    return unpackedAddress(firstAddress, packed) == 0 && unpackedAddress(secondAddress, packed) == 0;
}

AclHashKey AclKeyLayout::unpack(AclPackedKey const& packed) const {
    U32 const* const bits = packed.data();
    AclHashKey key;
    HwAclCombinationId const asked = firstCombination + combination.get(bits);
    key.combinationIs(asked).aclIdIs(static_cast<U8>(aclId.get(bits))).keyFlagIs(keyFlag.get(bits) != 0);
    if (vrfId.width != 0) key.vrfIdIs(vrfId.get(bits));
    key.firstPrefixIs(unpackedPrefix(firstAddress, firstMaskType, absentLength, packed));
    key.secondPrefixIs(unpackedPrefix(secondAddress, secondMaskType, absentLength, packed));
    if (looksAtProtocol(asked)) key.protocolIs(protocol.get(bits));
    auto const storedPort = static_cast<U16>(port.get(bits));
    key.portIs(storedPort == anyPort ? U16{0} : storedPort);
    key.portIsZeroIs(portIsZeroInUse(asked) && storedPort == 0);
    return key;
}

void AclRowLayout::set(AclPackedKey const& packed, AclHashResult const& result, U32* row) const {
    encode(packed, result, row);
}

std::vector<NerioSwitchApi::RowField> AclRowLayout::rowFields() const {
    std::vector<NerioSwitchApi::RowField> fields;
    for (auto const& field : key.fields())
        addKeyField(field, keyParts, fields);
    for (auto const* rule : {&forms.front(), &forms.back(), &secondChain}) {
        for (NerioSwitchApi::RowField const field : present(rule->fields())) {
            if (std::ranges::find(fields, field) == fields.end()) fields.push_back(field);
        }
    }
    // Of two forms each one clears the other's priority.
    bool const haveOneForm = forms[0].zero.first == forms[1].zero.first;
    if (haveOneForm && forms[0].zero.width != 0) fields.emplace_back(forms[0].zero);
    fields.emplace_back(parity);
    return fields;
}

AclPackedKey AclRowLayout::packedKey(U32 const* row) const {
    AclPackedKey packed{};
    for (auto const& part : keyParts)
        part.key.set(packed.data(), part.row.get(row));
    return packed;
}

std::optional<AclRow> AclRowLayout::decode(U32 const* row) const {
    auto const packed = packedKey(row);
    if (key.isEmpty(packed)) return std::nullopt;
    AclRow decoded{.key = key.unpack(packed), .result = {}};
    auto const& form = forms[forms[0].priority.get(row) != 0 ? 0 : 1];
    decoded.result.ruleIs(0, ruleIn(form, row));
    if (secondChain.priority.width != 0) decoded.result.ruleIs(1, ruleIn(secondChain, row));
    decoded.key.rangeIdIs(decoded.result.rule(0).rangeId());
    return decoded;
}

AclRowLayouts::AclRowLayouts(AclRowFormat const& format) : format_(format) {
    auto const& keys = keyLayouts(format.hasFilterMask());
    auto const& encoders = format.singleAclPipeMode ? rowEncoders<true> : rowEncoders<false>;
    auto const version = std::clamp(format.verMajor, firstVersion, lastVersion) - firstVersion;
    for (std::size_t table = 0; table < numPhysTables; ++table) {
        tables_[table] = rowLayout(keys[table], format);
        tables_[table].encode = encoders[static_cast<std::size_t>(version)][table];
    }
}

AclRowLayout const& AclRowLayouts::ofCombination(HwAclCombinationId combination) const {
    return tables_[tableOf(combination)];
}

AclRowLayout const& AclRowLayouts::ofPhysTable(U8 physTableIdx) const {
    auto const* const found = std::find_if(tables_.begin(), tables_.end(), [&](AclRowLayout const& layout) {
        return layout.key.physTableIdx == physTableIdx;
    });
    BELMO_ASSERT_TEXT(found != tables_.end(),
                      fmt::format("invalid ACL hashTableId {}", physTableIdx).c_str());
    return *found;
}

std::vector<NerioSwitchApi::RowField> AclRowLayouts::rowFields(U8 physTableIdx) const {
    return NerioSwitchApi::rowFields(ofPhysTable(physTableIdx).rowFields(),
                                     present(controlFields(format_.singleAclPipeMode).fields()));
}

void AclRowLayouts::setControl(Dovra::Cuckoo::CuckooLocation const& location, U8 physTableIdx, U8 pipeline,
                               U32* row) const {
    if (format_.singleAclPipeMode) {
        setControlWord<true>(location, physTableIdx, pipeline, row);
    } else {
        setControlWord<false>(location, physTableIdx, pipeline, row);
    }
}

}  // namespace NerioSwitchTable
