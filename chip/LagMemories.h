#pragma once

#include <vector>

#include "NerioSwitch/ProfileInfo.h"

#include "chip/IndirectMemory.h"

/* Link aggregation in the chip: where its memories are. */
namespace Chip {

/** Ports that a control word of a layer 2 table can select, by a bit each. */
inline constexpr U8 lagPortsPerTable = 31;

/** What stands before the LAG registers of a layer 2 table. */
Belmo::String lagTablePrefix(NerioSwitch::ProfileInfo const& profile, U32 table);

/** Whether a pipeline has the hash buckets of all ports behind one register, and not of four each. */
bool lagBucketsInOneMemory(NerioSwitch::ProfileInfo const& profile);

/** Adds the memories of link aggregation to those of a chip. */
void addLagMemories(NerioSwitch::ProfileInfo const& profile, std::vector<MemoryDescription>& memories);

}  // namespace Chip
