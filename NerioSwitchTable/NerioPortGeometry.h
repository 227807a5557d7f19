#pragma once

#include <map>
#include <utility>

#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"
#include "Sorn/ValueType.h"

#include "NerioSwitchTable/Export.h"

/*
 * Which chip ports a table copy serves, and how a chip-wide port mask (bit p is chip port p) splits over the
 * copies. A copy serves the hull of the port ranges of its pipes; ports in a gap count for it as well.
 */
namespace NerioSwitchTable {

/** First and last chip port of a table copy, both inclusive. */
using PortRange = std::pair<U32, U32>;

/** Ports of a copy of the VLAN family. A copy that no pipe maps to gets (numPorts - 1, 0). */
NERIO_SWITCH_TABLE_EXPORT PortRange portRangeOfVlanTable(NerioSwitch::ProfileInfo const* profileInfo,
                                                         U32 tableId);
/** Ports of a copy of the layer-2 family, by the same rule. */
NERIO_SWITCH_TABLE_EXPORT PortRange portRangeOfL2Table(NerioSwitch::ProfileInfo const* profileInfo,
                                                       U32 tableId);

/** Copies of a table of the VLAN family, the CPU pipeline's, which comes last, included. */
NERIO_SWITCH_TABLE_EXPORT U32 numVlanTableCopies(NerioSwitch::ProfileInfo const& profile);
/** Whether copy `pipeNo` of `numPipes`, the extra copy included, is the CPU pipeline's. */
NERIO_SWITCH_TABLE_EXPORT bool isCpuPipeline(NerioSwitch::ProfileInfo const& profile, U32 pipeNo,
                                             U32 numPipes);
/** True when each pipe has an ACL processor of its own; false when a processor is shared by two pipes. */
NERIO_SWITCH_TABLE_EXPORT bool singleAclPipeMode(NerioSwitch::ProfileInfo const& profile);
/** Width of a VRF field: the base-2 logarithm of the VRF count, taken down to a whole number. */
NERIO_SWITCH_TABLE_EXPORT U8 numVrfBits(NerioSwitch::ProfileInfo const& profile);

/** The chip ports that one hardware table copy serves. */
class NERIO_SWITCH_TABLE_EXPORT VlanTablePortRange {
    SORN_VALUE_TYPE(NerioSwitchTable, VlanTablePortRange, (U32, tableId, 0), (U32, min, 0), (U32, max, 0));

    VlanTablePortRange(U32 tableId, U32 min, U32 max) : tableId_(tableId), min_(min), max_(max) {}
};

/** The port ranges of a convertor's copies, and the cutting of chip-wide masks by them. */
class NERIO_SWITCH_TABLE_EXPORT TablePortRanges {
public:
    void portRangeOfTableIs(VlanTablePortRange const& range) { ranges_[range.tableId()] = range; }
    void portRangeOfTableDel(U32 tableId) { ranges_.erase(tableId); }
    void portRangeOfTableDelAll() { ranges_.clear(); }
    std::map<U32, VlanTablePortRange> const& portRangeOfTable() const { return ranges_; }

    /** Ports of a copy; 1 for a copy without a range. */
    U8 numPortsOfTable(U32 tableId) const;
    /** A copy's field of a chip-wide mask: its ports, at most 48, its lowest port at bit 0. */
    U64 maskOfTable(U32 tableId, U64 chipMask) const;
    /** The chip-wide mask that a copy's field stands for. */
    U64 chipMask(U32 tableId, U64 maskOfTable) const;

private:
    U32 minOfTable(U32 tableId) const;

    std::map<U32, VlanTablePortRange> ranges_;
};

}  // namespace NerioSwitchTable
