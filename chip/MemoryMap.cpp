#include "chip/MemoryMap.h"

#include <algorithm>
#include <bit>
#include <fmt/format.h>

#include "chip/Geometry.h"
#include "chip/LagMemories.h"

namespace Chip {

namespace {

using NerioSwitch::ProfileInfo;
constexpr auto acl = NerioSwitch::TableLayoutEnum::tableLayoutAcl;
constexpr auto egress = NerioSwitch::TableLayoutEnum::tableLayoutEgress;
constexpr auto l2 = NerioSwitch::TableLayoutEnum::tableLayoutL2;
constexpr auto l3 = NerioSwitch::TableLayoutEnum::tableLayoutL3;
constexpr auto vlans = NerioSwitch::TableLayoutEnum::tableLayoutVlan;

/** How the words of a control register are read. */
struct ControlWord {
    ControlField row;
    ControlField way{};
    ControlField writeStrobe{};
    ControlField readStrobe{};
    ControlField select{};
};

/** Its registers are those of MAC addresses as well, on chips that keep these in their pipelines. */
constexpr ControlWord hashTestWord{.row = {0, 12}, .way = {14, 1}, .writeStrobe = {15, 1}, .select = {16, 1}};
constexpr ControlWord macVlanWord{.row = {0, 14}, .writeStrobe = {15, 1}, .select = {16, 1}};
/** Rows by VLAN number. */
constexpr ControlWord vlanWord{.row = {0, 12}, .writeStrobe = {15, 1}, .readStrobe = {14, 1}};
constexpr ControlWord hitWord{.row = {0, 12}, .readStrobe = {16, 1}, .select = {18, 4}};
/** Selected by the physical table and, above it, the low bit of the pipeline. */
constexpr ControlWord aclWord{
    .row = {0, 11}, .way = {11, 1}, .writeStrobe = {18, 1}, .readStrobe = {17, 1}, .select = {13, 4}};
/** Of a processor that serves one pipeline: the bit of the pipeline stays 0. */
constexpr ControlWord aclWordOfOnePipeline{
    .row = {0, 12}, .way = {12, 1}, .writeStrobe = {18, 1}, .readStrobe = {17, 1}, .select = {13, 4}};
constexpr ControlWord aclCounterWord{
    .row = {0, 11}, .way = {11, 1}, .writeStrobe = {18, 1}, .readStrobe = {17, 1}, .select = {13, 3}};

/** Of what an ACL processor holds for a pipeline in rows of their own number. */
constexpr ControlWord aclRowWord(U8 rowBits) {
    return {.row = {0, rowBits}, .writeStrobe = {18, 1}, .readStrobe = {17, 1}, .select = {13, 4}};
}

/** A word of a layer 3 processor; memories differ in how many bits their rows take. */
constexpr ControlWord l3Word(U8 rowBits) {
    return {.row = {0, rowBits}, .writeStrobe = {17, 1}, .readStrobe = {16, 1}, .select = {18, 4}};
}
constexpr ControlWord lpmWord{
    .row = {0, 12}, .way = {14, 2}, .writeStrobe = {17, 1}, .readStrobe = {16, 1}, .select = {18, 4}};

constexpr ControlWord natMatchWord{
    .row = {0, 12}, .way = {14, 2}, .writeStrobe = {17, 1}, .readStrobe = {16, 1}, .select = {18, 2}};
constexpr ControlWord natRewriteWord{
    .row = {0, 10}, .way = {10, 2}, .writeStrobe = {13, 1}, .readStrobe = {12, 1}};
/** Routes by source and destination, in three ways. */
constexpr ControlWord sgWord{
    .row = {0, 13}, .way = {14, 2}, .writeStrobe = {17, 1}, .readStrobe = {16, 1}, .select = {18, 4}};

/** What a memory is beside its control word. */
struct Shape {
    U32 dataRegisters;
    U32 rowsPerWay;
    U32 ways;
    U32 selected = 0;
};

/** A memory behind registers of that prefix: "hash_data0" and on and "hash_ctl", with `stem` for "hash". */
MemoryDescription hashMemory(Belmo::String const& prefix, Belmo::String const& name, ControlWord const& word,
                             Shape const& shape, char const* stem = "hash") {
    MemoryDescription memory{.name = prefix + name,
                             .dataRegisters = {},
                             .controlRegister = fmt::format("{}{}_ctl", prefix, stem),
                             .row = word.row,
                             .writeStrobe = word.writeStrobe,
                             .rowsPerWay = shape.rowsPerWay,
                             .readStrobe = word.readStrobe,
                             .way = word.way,
                             .ways = shape.ways,
                             .select = word.select,
                             .selected = shape.selected};
    for (U32 i = 0; i < shape.dataRegisters; ++i)
        memory.dataRegisters.push_back(fmt::format("{}{}_data{}", prefix, stem, i));
    return memory;
}

/** The hit bits that control words reach as number 11 of a processor's memories. */
MemoryDescription hitMemory(Belmo::String const& prefix, U32 rows) {
    auto memory = hashMemory(prefix, "hits", hitWord, {3, rows, 1, 11});
    memory.clearedByRead = true;
    return memory;
}

/** Lets a memory's rows have their hit bits in that prefix's hit memory: ways stand 9 bits apart. */
MemoryDescription withHits(MemoryDescription memory, Belmo::String const& prefix, U32 firstBit) {
    memory.hits = {.memory = prefix + "hits", .bits = {}, .rowsPerBit = memory.rowsPerWay};
    for (U32 way = 0; way < memory.ways; ++way)
        memory.hits.bits.push_back(static_cast<U8>(firstBit + 9 * way));
    return memory;
}

void addPipeline(U32 pipeline, std::vector<MemoryDescription>& memories) {
    auto const prefix = fmt::format("pipeline[{}]/processor/", pipeline);
    memories.push_back(withHits(hashMemory(prefix, "hashTest", hashTestWord, {2, 8, 2}), prefix, 0));
    memories.push_back(hitMemory(prefix, 4));
}

/** Where a layer 2 memory has its copies: in blocks of its own or in pipelines, and in the CPU's pipeline. */
struct CopyPlaces {
    bool ownBlocks;
    char const* block;
};

/** Prefixes of the copies of a family, the CPU pipeline's last. */
std::vector<Belmo::String> copyPrefixes(ProfileInfo const& profile, NerioSwitch::TableLayoutEnum layout,
                                        CopyPlaces const& places) {
    std::vector<Belmo::String> prefixes;
    U32 const copies = tableCount(profile, layout);
    U32 const inPipelines = std::min(copies, pipelineCount(profile));
    for (U32 copy = 0; copy < (places.ownBlocks ? copies : inPipelines); ++copy) {
        prefixes.push_back(places.ownBlocks ? fmt::format("ingress/{}[{}]/", places.block, copy)
                                            : fmt::format("pipeline[{}]/processor/", copy));
    }
    if (profile.hasCpuPipeline) {
        auto const* const block = places.ownBlocks ? places.block : "processor";
        prefixes.push_back(fmt::format("cpu_pipeline[0]/{}/", block));
    }
    return prefixes;
}

void addLayer2(ProfileInfo const& profile, std::vector<MemoryDescription>& memories) {
    constexpr U32 vlanRows = 4096;
    bool const ownVlanBlock = profile.vlanRegVer > 2;
    for (auto const& prefix : copyPrefixes(profile, vlans, {ownVlanBlock, "vlan"})) {
        Shape const shape{ownVlanBlock ? 3u : 2u, vlanRows, 1};
        memories.push_back(hashMemory(prefix, "vlans", vlanWord, shape, "vlan"));
    }
    bool const ownFloodBlock = profile.hwApi.majorVersion() >= 5;
    for (auto const& prefix : copyPrefixes(profile, vlans, {ownFloodBlock, "vlan"}))
        memories.push_back(hashMemory(prefix, "floodSets", vlanWord, {4, vlanRows, 1}, "floodset"));
    U32 const macRows =
        std::min(profile.macVlanRows[0] * profile.macVlanRows[1], 1u << macVlanWord.row.width);
    if (macRows == 0) return;
    for (auto const& prefix : copyPrefixes(profile, l2, {profile.noMuxInRegName, "processor_l2"}))
        memories.push_back(hashMemory(prefix, "macVlans", macVlanWord, {4, macRows, 1, 1}));
}

/** A way has as many rows as the layout says, taken down to a power of two that a control word can name. */
U32 aclRowsPerWay(ProfileInfo const& profile, ControlField row) {
    return std::min(std::bit_floor(profile.getHardwareTableLayout(acl)->size), U32{1} << row.width);
}

/** What an ACL processor holds for one of its pipelines. */
void addAclPipeline(ProfileInfo const& profile, Belmo::String const& prefix, U32 pipeline,
                    std::vector<MemoryDescription>& memories) {
    bool const onePipeline = aclProcessorPerPipeline(profile);
    U32 const pipelineBit = onePipeline ? 0 : (pipeline & 1) << 3;
    auto const& word = onePipeline ? aclWordOfOnePipeline : aclWord;
    U32 const rowsPerWay = aclRowsPerWay(profile, word.row);
    auto const add = [&](Belmo::String const& name, ControlWord const& control, Shape shape) {
        shape.selected |= pipelineBit;
        memories.push_back(hashMemory(prefix, fmt::format("{}/pipeline{}", name, pipeline), control, shape));
    };
    if (rowsPerWay > 0) {
        for (U32 const table : {0u, 1u, 2u, 5u})
            add(fmt::format("table{}", table), word, {4, rowsPerWay, 2, table});
    }
    add("protocols", aclRowWord(8), {profile.aclRegVer < 2 ? 5u : 4u, 256, 1, 3});
    if (profile.hwApi.majorVersion() >= 4) add("portRanges", aclRowWord(5), {4, 32, 1, 6});
}

void addAclProcessor(ProfileInfo const& profile, U32 processor, std::vector<MemoryDescription>& memories) {
    auto const prefix = fmt::format("ingress/processor_acl[{}]/", processor);
    for (U32 pipeline = 0; pipeline < profile.numPipelinesOfTable(acl); ++pipeline) {
        if (profile.pipeToProcessorId(pipeline, acl) == processor)
            addAclPipeline(profile, prefix, pipeline, memories);
    }
    memories.push_back(hashMemory(prefix, "counters", aclCounterWord, {5, 2048, 2, 4}));
}

/** A stage of the route look-up that hashes. Its number selects it, and is the first bit of its hits. */
struct LpmMemory {
    char const* name;
    U32 number;
    U32 rowsPerWay;
};

constexpr LpmMemory lpmMemories[] = {{"lpm32", 0, 4096}, {"lpm29", 1, 4096}, {"lpm26", 2, 4096},
                                     {"lpm23", 3, 1024}, {"lpm20", 4, 1024}, {"lpm17", 5, 1024},
                                     {"lpm14", 6, 1024}};

/** Routes of up to 11 bits: 2048 rows for each VRF, of which 32 have room. Their hit bits lie where those of
 * the hash stages leave room. */
MemoryDescription lpm11Memory(ProfileInfo const& profile, Belmo::String const& prefix) {
    U32 const rows = std::min(profile.numVrfs, 32u) * 2048;
    auto memory = hashMemory(prefix, "lpm11", l3Word(16), {1, rows, 1, 7});
    memory.hits = {.memory = prefix + "hits", .bits = {7, 16, 20, 21, 22, 23, 24, 25}, .rowsPerBit = 8192};
    return memory;
}

void addL3Processor(ProfileInfo const& profile, U32 processor, std::vector<MemoryDescription>& memories) {
    auto const prefix = fmt::format("ingress/processor_l3[{}]/", processor);
    for (auto const& stage : lpmMemories) {
        Shape const shape{4, stage.rowsPerWay, 2, stage.number};
        memories.push_back(withHits(hashMemory(prefix, stage.name, lpmWord, shape), prefix, stage.number));
    }
    if (profile.numVrfs > 0) memories.push_back(lpm11Memory(profile, prefix));
    memories.push_back(hashMemory(prefix, "l3Lag", l3Word(6), {2, 56, 1, 9}));
    U32 const sgWords = profile.hwApi.majorVersion() >= 6 ? 5 : 4;
    memories.push_back(withHits(hashMemory(prefix, "sg", sgWord, {sgWords, 8192, 3, 8}), prefix, 8));
    memories.push_back(hashMemory(prefix, "l3Floods", l3Word(16), {2, 160, 1, 10}));
    memories.push_back(hitMemory(prefix, 4096));
}

/**
 * The matches of two neighbouring pipelines. In the hit memory those on one side stand behind the longest
 * routes, and those on both sides, two ways in a bit, behind shorter ones.
 */
void addL4Processor(ProfileInfo const& profile, U32 processor, std::vector<MemoryDescription>& memories) {
    auto const prefix = fmt::format("ingress/processor_l4[{}]/", processor);
    auto const hits = fmt::format("ingress/processor_l3[{}]/hits", processor);
    bool const hasHits = processor < processorCount(profile, l3);
    memories.push_back(hashMemory(prefix, "natMatch", natMatchWord, {4, 4096, 3}));
    if (hasHits)
        memories.back().hits = {.memory = hits, .bits = {0, 9, 18}, .rowsPerBit = 4096, .firstRow = 2048};
    U32 const behind = std::min(2 * processor + 2, pipelineCount(profile));
    for (U32 pipeline = 2 * processor; pipeline < behind; ++pipeline) {
        U32 const odd = pipeline & 1;
        auto const name = fmt::format("natDynMatch/pipeline{}", pipeline);
        memories.push_back(hashMemory(prefix, name, natMatchWord, {4, 1024, 4, odd + 1}));
        if (!hasHits) continue;
        std::vector<U8> const bits{static_cast<U8>(3 + odd), static_cast<U8>(12 + odd)};
        memories.back().hits = {.memory = hits, .bits = bits, .rowsPerBit = 2048, .firstRow = 1024};
    }
}

/** A profile without egress processors has none in any pipeline. */
U32 egressProcessorCount(ProfileInfo const& profile) {
    U32 const count = processorCount(profile, NerioSwitch::TableLayoutEnum::tableLayoutEgress);
    return count == 0 ? 0 : std::max(count, pipelineCount(profile));
}

/** Ports of the largest egress pipe. */
U32 portsPerEgressPipe(ProfileInfo const& profile) {
    U32 ports = 1;
    for (auto const& [pipe, range] : profile.egressPipeRangeInfo)
        ports = std::max(ports, U32{range.numPorts()});
    return ports;
}

/**
 * The lines of an egress processor, in a bank for each of two ports: next hops of flooded packets, the same
 * in both, and above them groups of VLANs. Control words have no room for a third port: how a chip of more
 * ports in a pipe tells their groups apart is not known, and none are kept.
 */
void addEgressProcessor(ProfileInfo const& profile, U32 processor, std::vector<MemoryDescription>& memories) {
    auto const prefix = fmt::format("egress/processor[{}]/", processor);
    constexpr U32 linesPerBank = 512;
    constexpr U32 firstGroupLine = 448;
    memories.push_back({.name = prefix + "lines",
                        .dataRegisters = {prefix + "lum_data"},
                        .controlRegister = prefix + "lum_ctl_addr_data",
                        .row = {4, 9},
                        .writeStrobe = {14, 1},
                        .rowsPerWay = linesPerBank,
                        .readStrobe = {15, 1},
                        .way = {13, 1},
                        .ways = 2,
                        .content = {0, 4},
                        .keptRowsPerWay = portsPerEgressPipe(profile) > 2 ? firstGroupLine : 0});
}

}  // namespace

bool aclProcessorPerPipeline(ProfileInfo const& profile) {
    return profile.numProcessors(acl) == profile.numPipelinesOfTable(acl);
}

std::vector<MemoryDescription> chipMemories(ProfileInfo const& profile) {
    std::vector<MemoryDescription> memories;
    for (U32 pipeline = 0; pipeline < pipelineCount(profile); ++pipeline)
        addPipeline(pipeline, memories);
    for (U32 processor = 0; processor < processorCount(profile, acl); ++processor)
        addAclProcessor(profile, processor, memories);
    for (U32 processor = 0; processor < processorCount(profile, l3); ++processor)
        addL3Processor(profile, processor, memories);
    for (U32 processor = 0; 2 * processor < pipelineCount(profile); ++processor)
        addL4Processor(profile, processor, memories);
    for (U32 processor = 0; processor < egressProcessorCount(profile); ++processor) {
        auto const prefix = fmt::format("egress/processor[{}]/", processor);
        memories.push_back(hashMemory(prefix, "natRewrite", natRewriteWord, {3, 1024, 4}, "nat_lum_hash"));
    }
    for (U32 processor = 0; processor < processorCount(profile, egress); ++processor)
        addEgressProcessor(profile, processor, memories);
    addLagMemories(profile, memories);
    addLayer2(profile, memories);
    return memories;
}

}  // namespace Chip
