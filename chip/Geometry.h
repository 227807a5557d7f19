#pragma once

#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"

/* How many of its blocks the chip of a profile has. */
namespace Chip {

/** Pipelines: as many as any part of the profile speaks of. */
U32 pipelineCount(NerioSwitch::ProfileInfo const& profile);
/** Copies of a family's table: what the profile counts, and no fewer than its pipes are mapped to. */
U32 tableCount(NerioSwitch::ProfileInfo const& profile, NerioSwitch::TableLayoutEnum layout);
/** Processors of a family, counted likewise. */
U32 processorCount(NerioSwitch::ProfileInfo const& profile, NerioSwitch::TableLayoutEnum layout);

}  // namespace Chip
