#include <array>
#include <benchmark/benchmark.h>

#include "chip/FaultyBus.h"
#include "chip/RecordingBus.h"
#include "chip/SimulatedChip.h"

namespace {

using NerioSwitchApi::RegisterBus;
using NerioSwitchApi::RegisterHandle;

constexpr U32 writeStrobe = 1u << 18;

Belmo::Ptr<Chip::SimulatedChip> aclChip() {
    return Chip::simulatedChip(
        *NerioSwitch::profilePreset("default"),
        {{.name = "acl",
          .dataRegisters = {"ingress/processor_acl[0]/hash_data0", "ingress/processor_acl[0]/hash_data1",
                            "ingress/processor_acl[0]/hash_data2", "ingress/processor_acl[0]/hash_data3"},
          .controlRegister = "ingress/processor_acl[0]/hash_ctl",
          .row = {0, 11},
          .writeStrobe = {18, 1},
          .rowsPerWay = 2048}});
}

std::array<RegisterHandle, 5> aclRegisters(RegisterBus& bus) {
    return {bus.address("ingress/processor_acl[0]/hash_data0"),
            bus.address("ingress/processor_acl[0]/hash_data1"),
            bus.address("ingress/processor_acl[0]/hash_data2"),
            bus.address("ingress/processor_acl[0]/hash_data3"),
            bus.address("ingress/processor_acl[0]/hash_ctl")};
}

void writeRegister(benchmark::State& state) {
    Belmo::Ptr<RegisterBus> const bus = aclChip();
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
    writeRows(state, aclChip(), 0);
}
BENCHMARK(writeRowOfRegisters);

void writeRowOfMemory(benchmark::State& state) {
    writeRows(state, aclChip(), writeStrobe);
}
BENCHMARK(writeRowOfMemory);

void writeRowThroughIdleRecorder(benchmark::State& state) {
    auto const bus = Belmo::make<Chip::RecordingBus>(aclChip());
    bus->recordingIs(false);
    writeRows(state, bus, writeStrobe);
}
BENCHMARK(writeRowThroughIdleRecorder);

void writeRowThroughFaultyBus(benchmark::State& state) {
    writeRows(state, Belmo::make<Chip::FaultyBus>(aclChip()), writeStrobe);
}
BENCHMARK(writeRowThroughFaultyBus);

void makeChip(benchmark::State& state) {
    auto const profile = NerioSwitch::profilePreset("default");
    for (auto _ : state)
        benchmark::DoNotOptimize(Chip::simulatedChip(*profile));
}
BENCHMARK(makeChip)->Unit(benchmark::kMicrosecond);

void lookUpRegister(benchmark::State& state) {
    Belmo::Ptr<RegisterBus> const bus = aclChip();
    for (auto _ : state)
        benchmark::DoNotOptimize(bus->address("ingress/processor_acl[1]/hash_data3"));
}
BENCHMARK(lookUpRegister);

}  // namespace
