#pragma once

#include <vector>

#include "Belmo/Export.h"
#include "NerioSwitch/ProfileInfo.h"

#include "chip/IndirectMemory.h"

namespace Chip {

/**
 * The memories that the chip of a profile has behind its control registers. A memory's name is the prefix of
 * its registers and what it holds there:
 *
 *   "pipeline[0]/processor/hashTest", ".../hits"     in each pipeline: the rows of the hash test table, and
 *                                                    the hit bits of the pipeline's memories
 *   "ingress/processor_acl[0]/table0/pipeline0"      in each ACL processor: the physical tables 0, 1, 2 and
 *                                                    5 of each pipeline that it serves
 *   "ingress/processor_acl[0]/protocols/pipeline0"   the number that its keys have for each IP protocol
 *   "ingress/processor_acl[0]/portRanges/pipeline0"  from hardware API version 4 on, the L4 port ranges of
 *                                                    its rules
 *   "ingress/processor_acl[0]/counters"              and the processor's indirect counters
 *   "ingress/processor_l3[0]/lpm32" to ".../lpm14"   in each L3 processor: the stages of the route look-up
 *                                                    that hash, by their longest route
 *   "ingress/processor_l3[0]/lpm11"                  the stage of routes of up to 11 bits
 *   "ingress/processor_l3[0]/l3Lag"                  the ports of L3 LAGs
 *   "ingress/processor_l3[0]/sg"                     routes by source and destination
 *   "ingress/processor_l3[0]/l3Floods"               the ports of next hops that packets are flooded to
 *   "ingress/processor_l3[0]/hits"                   and the hit bits of the processor's memories
 *   "ingress/processor_l4[0]/natMatch"               in each L4 processor, which serves two pipelines:
 *                                                    matches of translations on one side
 *   "ingress/processor_l4[0]/natDynMatch/pipeline0"  and for each pipeline those on both sides; all have
 *                                                    their hit bits in the L3 processor of that number
 *   "egress/processor[0]/natRewrite"                 in each egress processor: what becomes of sessions,
 *   "egress/processor[0]/lines"                      what it writes into flooded packets, and the VLANs of
 *                                                    groups
 *   "ingress/vlan[0]/vlans", ".../floodSets"         in each copy of the VLAN tables, the CPU pipeline's
 *                                                    included: VLANs, and the ports they flood to
 *   "ingress/processor_l2[0]/macVlans"               in each layer 2 copy: MAC addresses; chips of earlier
 *                                                    versions have these three in "pipeline[0]/processor/"
 *   "ingress/processor_l2[0]/lagGroups",             in each layer 2 table, for its first 31 ports: the LAG
 *   ".../lagPorts"                                   of a port, and the ports of its LAG
 *   "cpu_pipeline[0]/lag_cpu[0]/lagPorts"            for packets of the CPU: the ports of each LAG
 *   "pipeline[0]/lag_lut[0]/lagBuckets"              in each pipeline, for four ports each or, in later
 *                                                    generations, for all in "pipeline[0]/": the hash
 *                                                    buckets of a LAG port; the CPU's in "cpu_pipeline[0]/"
 *
 * A hit memory is read by its read strobe, a row at a time, and a read clears what it read: whoever reads
 * takes the hit bits of all tables in that row.
 */
BELMO_EXPORT std::vector<MemoryDescription> chipMemories(NerioSwitch::ProfileInfo const& profile);

/** Whether each pipeline has an ACL processor of its own: rows are longer and more of them then. */
BELMO_EXPORT bool aclProcessorPerPipeline(NerioSwitch::ProfileInfo const& profile);

}  // namespace Chip
