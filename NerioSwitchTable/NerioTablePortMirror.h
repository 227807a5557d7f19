#pragma once

#include <algorithm>

#include "NerioSwitch/Indexes.h"
#include "NerioSwitch/IngressPortMask.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {

/** The chip port that receives. A default key holds the null port. */
class NERIO_SWITCH_TABLE_EXPORT RxPortMirrorKey {
    SORN_VALUE_TYPE(NerioSwitchTable, RxPortMirrorKey, (NerioSwitch::ChipPortId, chipPortId, {}));

    explicit RxPortMirrorKey(NerioSwitch::ChipPortId chipPortId) : chipPortId_(chipPortId) {}

    /** "chipPortId 5" */
    Belmo::String keyString() const;
};

/** The ports that get a copy, and whether the CPU does. */
class NERIO_SWITCH_TABLE_EXPORT RxPortMirrorResult {
    SORN_VALUE_TYPE(NerioSwitchTable, RxPortMirrorResult, (NerioSwitch::IngressPortMask, dstPortMask, {}));

    explicit RxPortMirrorResult(NerioSwitch::IngressPortMask dstPortMask) : dstPortMask_(dstPortMask) {}

    /** "appPortMask:0x000000000030, cpu: false" */
    Belmo::String resultString() const;
};

/** A row of a chip: a bit for each of its ports, and behind them one for the CPU. */
class RxPortMirrorRow {
public:
    /** Words that an entry writes; a start writes those that have registers. */
    static constexpr U8 writtenWords = 3;

    explicit constexpr RxPortMirrorRow(U16 numPorts) : numPorts_(numPorts) {}

    /** Words that have registers. */
    constexpr U32 numRegsPerPort() const { return (U32{numPorts_} + 32) >> 5; }
    /** Words of a row, those that stay in the shadow included. */
    constexpr U32 words() const { return std::max<U32>(numRegsPerPort(), writtenWords); }
    /** The ports that a mask has room for. */
    constexpr BitField ports() const { return {"ports", 0, static_cast<U8>(std::min<U16>(numPorts_, 52))}; }
    constexpr BitField cpu() const { return {"cpu", numPorts_, 1}; }

private:
    U16 numPorts_;
};

/** Per chip port, where copies of the packets that it receives go. */
class NERIO_SWITCH_TABLE_EXPORT RxPortMirrorTable final
    : public PlainTable<RxPortMirrorKey, RxPortMirrorResult> {
public:
    explicit RxPortMirrorTable(Belmo::String const& name)
        : PlainTable<RxPortMirrorKey, RxPortMirrorResult>(name) {
        hwTablesDuplicateIs(false);
    }
    ~RxPortMirrorTable() override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;
};

using RxPortMirrorConvertor = RxPortMirrorTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<RxPortMirrorTable> RxPortMirrorTableIs(Belmo::String const& name);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<RxPortMirrorTable> rxPortMirrorTableFactory(Belmo::String const& name);

}  // namespace NerioSwitchTable
