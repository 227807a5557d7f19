#include "NerioSwitchTable/NerioNatHash.h"

#include "Belmo/Assert.h"
#include "NerioSwitch/Parity.h"
#include "Sorn/Format.h"

#include "NerioSwitchTable/NerioHitBitUtil.h"

namespace NerioSwitchTable {

namespace {

constexpr U32 allBits = 0xFFFFFFFF;
constexpr U8 dataWords = 4;

}  // namespace

void NatMatchControl::set(Dovra::Cuckoo::CuckooLocation const& location, U32 selected, U32* words) const {
    row.set(words, location.row);
    unused.set(words, 0);
    way.set(words, location.table);
    readStrobe.set(words, 0);
    writeStrobe.set(words, 1);
    select.set(words, selected);
}

void NatMatchResultFields::setParity(U32* words) const {
    parity.set(words, 0);
    parity.set(words, NerioSwitch::parityU32Array(words, dataWords));
}

U8 NatMatchResultFields::protoToHwVal(NerioSwitch::NatL4Proto proto, Sorn::TraceHandle const& handle) {
    if (proto.value() <= NerioSwitch::NatL4Proto::tcpAndUdp) return proto.value();
    SORN_TRACE(handle, 0, "setHwBuffer unexpected proto={}", proto.value());
    return NerioSwitch::NatL4Proto::none;
}

NatHashConvertor::NatHashConvertor(U8 pipeline, TableIndex tableIndex, U8 controlWord, char const* pipeText)
    : pipeline_(pipeline), tableIndex_(tableIndex), controlWord_(controlWord), pipeText_(pipeText) {
    hwStaticWordIs(controlWord_, allBits);
}

NatHashConvertor::~NatHashConvertor() = default;

void NatHashConvertor::handleInitialized() {
    hwStaticWordIs(controlWord_, allBits);
}

void NatHashConvertor::doInitTableStats() {
    BELMO_ASSERT(capacitySupported());
    auto const* const swTbl = swTables() > 0 ? swTable(0) : nullptr;
    BELMO_ASSERT(swTbl);
    TableGauge::TableKey const key(TableConstants::cliName(tableIndex_),
                                   pipeText_ + std::to_string(U32{pipeline_}), swTbl->name());
    BELMO_ASSERT(key.verifyTableKey());
    initEntryCounter(key, tableSize() * numHashTables(), 0);
}

NatMatchBaseConvertor::NatMatchBaseConvertor(U8 pipeline, TableIndex tableIndex)
    : NatHashConvertor(pipeline, tableIndex, NatMatchControl::word, "Pipe") {
    strobeBitsAre(16, 17);
}

NatMatchBaseConvertor::~NatMatchBaseConvertor() = default;

void NatMatchBaseConvertor::createMatchTables(NerioSwitchApi::TableState state, U32 number) {
    U32 const processor = pipeline() >> 1;
    auto const registers =
        NerioSwitchApi::addressesOf(Sorn::_fmt("ingress/processor_l4[%u]/", processor),
                                    {"hash_data0", "hash_data1", "hash_data2", "hash_data3", "hash_ctl"});
    createHashHwTable(state, familyIndex(), number, registers);
    if (!swTable(0)->hitBitsSupported()) return;
    auto const wrapper = Belmo::make<NerioSwitchApi::HitBitReadInfoWrapper>();
    registerHitBits(*hitBitReadInfoIs(*wrapper, Sorn::_fmt("ingress/processor_l3[%u]/", processor)));
    createHitBitTable(0, state, 0, tableSize() * numHashTables() - 1, descriptor(0)->name(), wrapper);
}

}  // namespace NerioSwitchTable
