#include "NerioSwitchTable/NerioTableVlanMembership.h"

#include <algorithm>

#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioRegPrefixUtil.h"
#include "NerioSwitchTable/TableConstants.h"

namespace Sorn {

template <>
void parseAttributes(CharRange& /*range*/, NerioSwitchTable::VlanMembershipResult& /*object*/) {
    BELMO_ASSERT_TEXT(false,
                      "\"No String constructor for VlanMembershipResult - has collection\" == nullptr");
}

}  // namespace Sorn

namespace NerioSwitchTable {

using Bridging::VlanId;
using NerioSwitch::PipeId;
using NerioSwitch::RegisterFormatVersion;

namespace {

Sorn::TraceHandle handle("NerioTableVlanMembership");

constexpr TableIndex tableIndex = 4;
constexpr U8 staticWord = 3;

/** Hands out the fields of a row from its lowest bit on. */
class FieldCursor {
public:
    BitField take(char const* name, U32 width) {
        BitField const field{name, static_cast<U16>(next_), static_cast<U8>(width)};
        next_ += width;
        return field;
    }
    BitField flag(char const* name) { return take(name, 1); }
    void skip(U32 bits) { next_ += bits; }

private:
    U32 next_ = 0;
};

void takePipeFields(VlanMembershipRow::Form const& form, FieldCursor& cursor, VlanMembershipRow& row) {
    U32 const enableBits = form.version >= 6 ? 2 : 4;
    row.aclPipes = form.singleAclPipeMode ? 1 : 2;
    auto const pipes = std::span(row.acl).first(row.aclPipes);
    U32 const firstPipe = form.copy * row.aclPipes;
    for (U32 i = 0; i < pipes.size(); ++i)
        pipes[i].pipe = firstPipe + i;
    for (auto& acl : pipes)
        acl.id = cursor.take("aclId", 4);
    for (auto& acl : pipes)
        acl.enable = cursor.take("aclEnable", enableBits);
    for (auto& acl : pipes)
        acl.defaultPermit = cursor.flag("aclDefaultPermit");
    row.natPipe = 2 * form.copy;
    row.natReadPipe = firstPipe;
    if (form.version >= 7) {
        row.natIngressProfileId = cursor.take("natIngressProfileId", 6);
    } else {
        row.natId = cursor.take("natId", 3);
    }
    row.natEnable = cursor.flag("natEnable");
}

/** What a map holds for a pipe that is in it, else `absent`. A pipe number beyond the type's range throws. */
template <class Value>
U64 valueAt(PipeMap<Value> const& map, U32 pipe, U64 absent = 0) {
    auto const found = map.find(PipeId(pipe));
    if (found == map.end()) return absent;
    if constexpr (Belmo::IsRangedIndex<Value>) {
        return found->second.value();
    } else {
        return found->second;
    }
}

void encodeBase(VlanMembershipRow const& row, VlanMembershipResult const& result, NerioSwitchApi::HwIndex vid,
                U32* words) {
    row.valid.set(words, 1);
    row.learnToCpu.set(words, result.learnToCpu());
    row.unknownMulticastToCpu.set(words, result.unknownMulticastToCpu());
    row.multicastJoinToCpu.set(words, result.multicastJoinToCpu());
    row.broadcastToCpu.set(words, result.broadcastToCpu());
    row.unknownDaToCpu.set(words, result.unknownDaToCpu());
    row.multicastJoinToEgress.set(words, result.multicastJoinToEgress());
    row.vrfBits.set(words, result.vrfBits());
    row.unicastRoute.set(words, result.unicastRoute());
    row.multicastRoute.set(words, result.multicastRoute());
    row.always.set(words, 1);
    row.vid.set(words, vid);
    row.strobe.set(words, 1);
    if (row.aclPipes == 0) return;
    for (auto const& acl : std::span(row.acl).first(row.aclPipes)) {
        acl.id.set(words, valueAt(result.aclId(), acl.pipe));
        acl.enable.set(words, valueAt(result.aclEnable(), acl.pipe));
        acl.defaultPermit.set(words, valueAt(result.aclDefaultPermit(), acl.pipe, 1));
    }
    row.natId.set(words, valueAt(result.natId(), row.natPipe));
    row.natIngressProfileId.set(words, valueAt(result.natIngressProfileId(), row.natPipe));
    row.natEnable.set(words, valueAt(result.natEnable(), row.natPipe));
}

void traceForm(RegisterFormatVersion version, U32 vrfBits) {
    SORN_TRACE(handle, 8, "vlanRegVer {} num vrf bits = {}", version, vrfBits);
}

/** A field's number as what an attribute holds. */
template <class Value>
Value valueOf(BitField const& field, U32 const* words) {
    return static_cast<Value>(field.get(words));
}

/** The maps that a row tells of: what is not enabled is dropped. */
void decodePipeFields(VlanMembershipRow const& row, U32 const* words, VlanMembershipResult& result) {
    if (row.aclPipes == 0) return;
    for (auto const& acl : std::span(row.acl).first(row.aclPipes)) {
        auto const enable = valueOf<U8>(acl.enable, words);
        if (enable == 0) continue;
        result.aclEnableIs(acl.pipe, enable)
            .aclIdIs(acl.pipe, acl.id.get(words))
            .aclDefaultPermitIs(acl.pipe, acl.defaultPermit.get(words) != 0);
    }
    if (row.natEnable.get(words) == 0) return;
    result.natEnableIs(row.natReadPipe, 1);
    if (row.natId.width > 0) {
        result.natIdIs(row.natReadPipe, valueOf<U8>(row.natId, words));
    } else {
        result.natIngressProfileIdIs(row.natReadPipe, row.natIngressProfileId.get(words));
    }
}

/** What a row says, its port mask as it stands there. */
VlanMembershipResult decodeRow(VlanMembershipRow const& row, U32 const* words) {
    VlanMembershipResult result;
    result.permitMaskIs(row.permitMask.get(words))
        .learnToCpuIs(row.learnToCpu.get(words) != 0)
        .unknownMulticastToCpuIs(row.unknownMulticastToCpu.get(words) != 0)
        .multicastJoinToCpuIs(row.multicastJoinToCpu.get(words) != 0)
        .broadcastToCpuIs(row.broadcastToCpu.get(words) != 0)
        .unknownDaToCpuIs(row.unknownDaToCpu.get(words) != 0)
        .multicastJoinToEgressIs(row.multicastJoinToEgress.get(words) != 0)
        .vrfBitsIs(valueOf<U8>(row.vrfBits, words))
        .unicastRouteIs(row.unicastRoute.get(words) != 0)
        .multicastRouteIs(row.multicastRoute.get(words) != 0);
    decodePipeFields(row, words, result);
    return result;
}

/** What all copies of a row share, as one number; 0 of a row that is not held. */
U64 sharedPart(VlanMembershipRow const& row, U32 const* words) {
    U64 shared = 0;
    if (words == nullptr) return shared;
    for (auto const* field : {&row.learnToCpu, &row.unknownMulticastToCpu, &row.multicastJoinToCpu,
                              &row.broadcastToCpu, &row.unknownDaToCpu, &row.multicastJoinToEgress,
                              &row.vrfBits, &row.unicastRoute, &row.multicastRoute})
        shared = shared << field->width | field->get(words);
    return shared;
}

/** The one convertor of this table, for every profile. */
class VlanMembershipConvertorLayer2All final : public VlanMembershipConvertor {
public:
    void doCreateHwTables(NerioSwitchApi::TableState state) override;

    void hwTableEntryIs(VlanMembershipKey const& key, VlanMembershipResult const& result) override {
        if (mayWrite()) entryIsInCopies(key, result);
    }

    std::vector<NerioSwitchApi::RowLayout> rowLayouts(Copy copy) const override {
        auto const& row = copies_[copy].written;
        return {NerioSwitchApi::rowLayout(row.words(), NerioSwitchApi::rowFields(row.fields()))};
    }

protected:
    HwIndex rowOf(VlanMembershipKey const& key) const override { return key.vid().value(); }
    VlanMembershipKey keyOf(HwIndex row) const override { return VlanMembershipKey(VlanId(row)); }
    Sorn::TraceHandle const& trace() const override { return handle; }

    RowWords encode(Copy copy, VlanMembershipKey const& key,
                    VlanMembershipResult const& result) const override {
        return rowWords(copy, key, result, ranges_.maskOfTable(copy, result.permitMask()));
    }
    VlanMembershipResult decode(Copy copy, VlanMembershipKey const& /*key*/,
                                U32 const* words) const override {
        return decodeRow(copies_[copy].read, words);
    }
    void writeDefault(Copy copy, HwIndex row) override {
        auto const key = keyOf(row);
        write(copy, row, rowWords(copy, key, VlanMembershipResult(), 0));
    }
    void readBackCopies(VlanMembershipKey const& key, CopyRows rows) override;

private:
    /** Rows of a single port are written short, but read in full on all copies but the CPU's. */
    struct CopyLayout {
        VlanMembershipRow written;
        VlanMembershipRow read;
    };

    void createCopyOf(Copy copy, U32 copies, NerioSwitchApi::TableState state);
    RowWords rowWords(Copy copy, VlanMembershipKey const& key, VlanMembershipResult const& result,
                      U64 mask) const;
    VlanMembershipResult firstCopy(CopyRows rows) const;
    bool holdsNothing(HwIndex row) const;

    TablePortRanges ranges_;
    std::vector<CopyLayout> copies_;
};

void VlanMembershipConvertorLayer2All::doCreateHwTables(NerioSwitchApi::TableState state) {
    sizeWordsIs(4);
    if (profile()->vlanRegVer < 3) {
        sizeWordsIs(3);
        hwStaticWordDel(staticWord);
        hwStaticWordIs(2, 0xFFFFFFFF);
    }
    U32 const copies = numVlanTableCopies(*profile());
    for (Copy copy = 0; copy < copies; ++copy)
        createCopyOf(copy, copies, state);
}

void VlanMembershipConvertorLayer2All::createCopyOf(Copy copy, U32 copies, NerioSwitchApi::TableState state) {
    auto const prefix = vlanRegPrefix(*profile(), copy);
    auto const registers =
        sizeWords() == 4
            ? NerioSwitchApi::addressesOf(prefix, {"vlan_data0", "vlan_data1", "vlan_data2", "vlan_ctl"})
            : NerioSwitchApi::addressesOf(prefix, {"vlan_data0", "vlan_data1", "vlan_ctl"});
    createCopy(copy, state, VlanId::first, VlanId::last,
               copyName(TableConstants::tableName(tableIndex), copy), registers);

    bool const isCpu = isCpuPipeline(*profile(), copy, copies);
    auto const [first, last] = isCpu ? PortRange(profile()->cpuPortId(), profile()->cpuPortId())
                                     : portRangeOfVlanTable(profile().get(), copy);
    ranges_.portRangeOfTableIs({copy, first, last});
    VlanMembershipRow::Form form{.version = profile()->vlanRegVer,
                                 .copy = copy,
                                 .ports = ranges_.numPortsOfTable(copy),
                                 .vrfBits = numVrfBits(*profile()),
                                 .singleAclPipeMode = singleAclPipeMode(*profile())};
    form.hasPipeFields = form.ports != 1;
    auto const written = VlanMembershipRow::of(form);
    form.hasPipeFields = !isCpu;
    copies_.push_back({written, VlanMembershipRow::of(form)});
}

VlanMembershipConvertorLayer2All::RowWords VlanMembershipConvertorLayer2All::rowWords(
    Copy copy, VlanMembershipKey const& key, VlanMembershipResult const& result, U64 mask) const {
    traceForm(profile()->vlanRegVer, numVrfBits(*profile()));
    auto const& layout = copies_[copy].written;
    RowWords words{};
    encodeBase(layout, result, rowOf(key), words.data());
    layout.permitMask.set(words.data(), mask);
    layout.parity.set(words.data(), NerioSwitch::parityU32Array(words.data(), layout.dataWords));
    return words;
}

/** Of a row that is not held, every flag is false. */
VlanMembershipResult VlanMembershipConvertorLayer2All::firstCopy(CopyRows rows) const {
    if (rows[0] != nullptr) return decodeRow(copies_[0].read, rows[0]);
    return VlanMembershipResult().learnToCpuIs(false).multicastJoinToEgressIs(false);
}

bool VlanMembershipConvertorLayer2All::holdsNothing(HwIndex row) const {
    return std::ranges::all_of(hwTables(),
                               [&](auto const& each) { return each.second->storedWords(row) == nullptr; });
}

/**
 * Joins the copies. The first one's mask is taken as it stands, without a shift by the copy's first port, and
 * a copy that was not reached says nothing.
 */
void VlanMembershipConvertorLayer2All::readBackCopies(VlanMembershipKey const& key, CopyRows rows) {
    auto result = firstCopy(rows);
    auto const shared = sharedPart(copies_[0].read, rows[0]);
    U64 mask = result.permitMask();
    bool isConsistent = true;
    for (Copy copy = 1; copy < rows.size(); ++copy) {
        auto const& layout = copies_[copy].read;
        auto const* words = rows[copy];
        bool const isValid = words != nullptr && (layout.valid.width == 0 || layout.valid.get(words) != 0);
        isConsistent &= isValid && sharedPart(layout, words) == shared;
        if (words == nullptr) continue;
        mask |= ranges_.chipMask(copy, layout.permitMask.get(words));
        decodePipeFields(layout, words, result);
    }
    if (!isConsistent) swTable().hwInconsistentEntryIs(key, true);
    if (!holdsNothing(rowOf(key))) adopt(key, result.permitMaskIs(mask));
}

char const* trueOrFalse(bool value) {
    return value ? "true" : "false";
}

/** The pairs of a map that holds any, behind its label. */
template <class Value>
Belmo::String pairs(char const* label, PipeMap<Value> const& map, bool asFlags = false) {
    Belmo::String text = map.empty() ? "" : label;
    for (auto const& [pipe, value] : map) {
        auto const number = static_cast<int>(valueAt(map, pipe.value()));
        text += asFlags ? Sorn::_fmt(" (%2d, %s)", pipe.value(), trueOrFalse(number != 0))
                        : Sorn::_fmt(" (%2d, %2d)", pipe.value(), number);
    }
    return text;
}

}  // namespace

VlanMembershipRow VlanMembershipRow::of(Form const& form) {
    BELMO_ASSERT_TEXT(form.ports <= BitField::maxWidth, "ppp <= 48");
    bool const isFirst = form.version < 3;
    FieldCursor cursor;
    VlanMembershipRow row{};
    row.dataWords = isFirst ? 2 : 3;
    row.valid = cursor.take("valid", isFirst ? 1 : 0);
    row.permitMask = cursor.take("permitMask", form.ports);
    row.learnToCpu = cursor.flag("learnToCpu");
    row.unknownMulticastToCpu = cursor.flag("unknownMulticastToCpu");
    row.multicastJoinToCpu = cursor.flag("multicastJoinToCpu");
    row.broadcastToCpu = cursor.flag("broadcastToCpu");
    row.unknownDaToCpu = cursor.flag("unknownDaToCpu");
    row.multicastJoinToEgress = cursor.flag("multicastJoinToEgress");
    row.parity = cursor.flag("parity");
    row.vrfBits = cursor.take("vrfBits", form.version < 4 ? 2 : form.vrfBits);
    row.unicastRoute = cursor.flag("unicastRoute");
    row.multicastRoute = cursor.flag("multicastRoute");
    if (form.version == 3) {
        cursor.skip(8);
        row.always = cursor.flag("always");
    }
    if (form.version > 3 && form.hasPipeFields) takePipeFields(form, cursor, row);
    auto const control = static_cast<U16>(32 * row.dataWords);
    row.vid = {"vid", control, 12};
    row.strobe = {"strobe", static_cast<U16>(control + 15), 1};
    return row;
}

VlanAclPipes vlanAclPipes(NerioSwitch::ProfileInfo const& profile) {
    VlanAclPipes all;
    U32 const copies = numVlanTableCopies(profile);
    for (U32 copy = 0; copy < copies; ++copy) {
        if (isCpuPipeline(profile, copy, copies)) continue;
        auto const [first, last] = portRangeOfVlanTable(&profile, copy);
        if (last <= first) continue;
        VlanMembershipRow::Form const form{.version = profile.vlanRegVer,
                                           .copy = copy,
                                           .singleAclPipeMode = singleAclPipeMode(profile),
                                           .hasPipeFields = true};
        auto const row = VlanMembershipRow::of(form);
        for (auto const& acl : std::span(row.acl).first(row.aclPipes)) {
            all.pipes.emplace_back(acl.pipe);
            all.enable = static_cast<U8>((1u << acl.enable.width) - 1);
        }
    }
    return all;
}

std::vector<BitField> VlanMembershipRow::fields() const {
    std::vector<BitField> all{valid,
                              permitMask,
                              learnToCpu,
                              unknownMulticastToCpu,
                              multicastJoinToCpu,
                              broadcastToCpu,
                              unknownDaToCpu,
                              multicastJoinToEgress,
                              parity,
                              vrfBits,
                              unicastRoute,
                              multicastRoute,
                              always,
                              natId,
                              natIngressProfileId,
                              natEnable,
                              vid,
                              strobe};
    for (auto const& each : acl)
        all.insert(all.end(), {each.id, each.enable, each.defaultPermit});
    std::erase_if(all, [](BitField const& field) { return field.width == 0; });
    return all;
}

void setBaseHwBuffer(U8 pipeNo, U8 ppp, U32 numVrfBits, VlanMembershipResult const& result,
                     NerioSwitchApi::HwIndex vid, U32* buffer, RegisterFormatVersion vlanRegVer,
                     bool singleAclPipeMode) {
    traceForm(vlanRegVer, numVrfBits);
    auto const row =
        VlanMembershipRow::of({vlanRegVer, pipeNo, ppp, numVrfBits, singleAclPipeMode, ppp != 1});
    encodeBase(row, result, vid, buffer);
}

Belmo::String VlanMembershipResult::resultString() const {
    return Sorn::_fmt(
               "permitMask:0x%012lx learnToCpu:%s unknownMcastToCpu:%s mcastJoinToCpu:%s bcastToCpu:%s "
               "unknownDaToCpu:%s mcastJoinToEgress:%s vrfBits:0x%x unicastRoute:%s multicastRoute:%s ",
               permitMask(), trueOrFalse(learnToCpu()), trueOrFalse(unknownMulticastToCpu()),
               trueOrFalse(multicastJoinToCpu()), trueOrFalse(broadcastToCpu()),
               trueOrFalse(unknownDaToCpu()), trueOrFalse(multicastJoinToEgress()), vrfBits(),
               trueOrFalse(unicastRoute()), trueOrFalse(multicastRoute())) +
           pairs(" AclId: ", aclId()) + pairs(" AclEnable: ", aclEnable(), true) +
           pairs(" AclDefaultPermit: ", aclDefaultPermit(), true) + pairs(" NatId: ", natId()) +
           pairs(" NatIngressProfileId: ", natIngressProfileId()) + pairs(" NatEnable: ", natEnable(), true);
}

VlanMembershipTable::~VlanMembershipTable() = default;

Belmo::Ptr<VlanMembershipTable::Convertor> VlanMembershipTable::profileConvertorFactory() const {
    return Belmo::make<VlanMembershipConvertorLayer2All>();
}

VlanMembershipConvertor::VlanMembershipConvertor() : ReplicatedConvertor(0) {
    strobeBitsAre(14, 15);
    hwStaticWordIs(staticWord, 0xFFFFFFFF);
}

VlanMembershipConvertor::~VlanMembershipConvertor() = default;

void VlanMembershipConvertor::handleInitialized() {
    hwStaticWordIs(staticWord, 0xFFFFFFFF);
}

void VlanMembershipConvertor::hwTableEntryIs(VlanMembershipKey const& key,
                                             VlanMembershipResult const& result) {
    SORN_TRACE(handle, 8, "{} {}", Sorn::text(key), result.resultString());
    BELMO_ASSERT(false);
}

Belmo::Ptr<VlanMembershipTable> VlanMembershipTableIs(Belmo::String const& name) {
    return Belmo::make<VlanMembershipTable>(name);
}

Belmo::Ptr<VlanMembershipTable> vlanMembershipTableFactory(Belmo::String const& name) {
    return VlanMembershipTableIs(name);
}

}  // namespace NerioSwitchTable
