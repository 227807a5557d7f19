#include <array>
#include <benchmark/benchmark.h>

#include "chip/AclLookup.h"
#include "chip/FaultyBus.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::RegisterBus;
using NerioSwitchApi::RegisterHandle;

constexpr U32 writeStrobe = 1u << 18;
/** What selects the last of the five memories behind an ACL processor's control register. */
constexpr U32 counters = 4u << 13;

Belmo::Ptr<Chip::SimulatedChip> demoChip() {
    return Chip::simulatedChip(*NerioSwitch::profilePreset("default"));
}

std::array<RegisterHandle, 5> aclRegisters(RegisterBus& bus) {
    return {bus.address("ingress/processor_acl[0]/hash_data0"),
            bus.address("ingress/processor_acl[0]/hash_data1"),
            bus.address("ingress/processor_acl[0]/hash_data2"),
            bus.address("ingress/processor_acl[0]/hash_data3"),
            bus.address("ingress/processor_acl[0]/hash_ctl")};
}

void writeRegister(benchmark::State& state) {
    Belmo::Ptr<RegisterBus> const bus = demoChip();
    auto const handle = bus->address("egress/port[3]/vlan_cfg");
    U32 word = 0;
    for (auto _ : state)
        bus->write(handle, ++word);
}
BENCHMARK(writeRegister);

/** Rows of five words, with `strobe` in the last one. */
void writeRows(benchmark::State& state, Belmo::Ptr<RegisterBus> const& bus, U32 strobe) {
    auto const handles = aclRegisters(*bus);
    std::array<U32, 5> words{1, 2, 3, 4, strobe};
    for (auto _ : state) {
        words[0]++;
        words[4] = strobe | (words[0] & 2047);
        bus->writeRow(handles, words.data());
    }
}

void writeRowOfRegisters(benchmark::State& state) {
    writeRows(state, demoChip(), 0);
}
BENCHMARK(writeRowOfRegisters);

void writeRowOfMemory(benchmark::State& state) {
    writeRows(state, demoChip(), writeStrobe);
}
BENCHMARK(writeRowOfMemory);

void writeRowOfLastMemory(benchmark::State& state) {
    writeRows(state, demoChip(), writeStrobe | counters);
}
BENCHMARK(writeRowOfLastMemory);

/** An ACL processor that serves two pipelines has nine memories behind its control register. */
void writeRowOfSharedProcessor(benchmark::State& state) {
    auto const profile = NerioSwitch::profilePreset("default");
    profile->layouts[NerioSwitch::TableLayoutEnum::tableLayoutAcl] = {1, 2, 1, 2048, {0, 0}, {0, 0}};
    writeRows(state, Chip::simulatedChip(*profile), writeStrobe | 1u << 16 | 5u << 13);
}
BENCHMARK(writeRowOfSharedProcessor);

/** A row of the hash test table: its control register has the hit bits behind it as well. */
void writeRowBesideHitBits(benchmark::State& state) {
    auto const bus = demoChip();
    std::array<RegisterHandle, 3> const handles{bus->address("pipeline[0]/processor/hash_data0"),
                                                bus->address("pipeline[0]/processor/hash_data1"),
                                                bus->address("pipeline[0]/processor/hash_ctl")};
    std::array<U32, 3> words{1, 2, 0};
    for (auto _ : state) {
        words[0]++;
        words[2] = 1u << 15 | (words[0] & 7);
        bus->writeRow(handles, words.data());
    }
}
BENCHMARK(writeRowBesideHitBits);

/** What a lookup does at the end, and a poll: one hit, and one read of two rows' hit bits. */
void hitAndRead(benchmark::State& state) {
    auto const bus = demoChip();
    auto& rows = bus->indirectMemory("pipeline[0]/processor/hashTest");
    auto const control = bus->address("pipeline[0]/processor/hash_ctl");
    auto const data = bus->address("pipeline[0]/processor/hash_data0");
    U32 row = 0;
    for (auto _ : state) {
        rows.hitIs(++row & 7);
        bus->write(control, 0x2D0000 | (row & 7) / 2);
        benchmark::DoNotOptimize(bus->read(data));
    }
}
BENCHMARK(hitAndRead);

/** A packet's lookup under one combination, which finds nothing: both ways are read. */
void lookUpAcl(benchmark::State& state) {
    auto const profile = NerioSwitch::profilePreset("default");
    auto const bus = Chip::simulatedChip(*profile);
    Chip::AclLookup const lookUp(*bus, *profile);
    Chip::AclFields fields{.firstAddress = 0x0A000001, .secondAddress = 0x0A000002, .protocol = 6};
    for (auto _ : state) {
        fields.port = static_cast<U16>(fields.port.value_or(0) + 1);
        benchmark::DoNotOptimize(lookUp.find(fields, 12, 1));
    }
}
BENCHMARK(lookUpAcl);

void writeRowThroughIdleRecorder(benchmark::State& state) {
    auto const bus = Belmo::make<Chip::RecordingBus>(demoChip());
    bus->recordingIs(false);
    writeRows(state, bus, writeStrobe);
}
BENCHMARK(writeRowThroughIdleRecorder);

void writeRowThroughFaultyBus(benchmark::State& state) {
    writeRows(state, Belmo::make<Chip::FaultyBus>(demoChip()), writeStrobe);
}
BENCHMARK(writeRowThroughFaultyBus);

void makeChip(benchmark::State& state) {
    auto const profile = NerioSwitch::profilePreset("default");
    for (auto _ : state)
        benchmark::DoNotOptimize(Chip::simulatedChip(*profile));
}
BENCHMARK(makeChip)->Unit(benchmark::kMicrosecond);

void lookUpRegister(benchmark::State& state) {
    Belmo::Ptr<RegisterBus> const bus = demoChip();
    for (auto _ : state)
        benchmark::DoNotOptimize(bus->address("ingress/processor_acl[1]/hash_data3"));
}
BENCHMARK(lookUpRegister);

}  // namespace
