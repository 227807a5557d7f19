#include <bit>
#include <cstring>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>

#include "NerioSwitchApi/MappedRegisterBus.h"
#include "NerioSwitchApi/TableFramework.h"

#include "ChildProcess.h"
#include "CommandProcess.h"
#include "FailureText.h"
#include "NerioSwitchTable/NerioTablePortConfig.h"
#include "TemporaryDirectory.h"
#include "chip/RecordingBus.h"
#include "chip/RegisterMap.h"

namespace {

using namespace NerioSwitchApi;
using NerioTest::runCommand;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;

RegisterMapFile mapOf(std::string_view text) {
    return RegisterMapFile::parse(text, "chip.map");
}

std::string faultOf(std::string_view text) {
    return failureOf<RegisterMapException>([&] { mapOf(text); });
}

std::vector<std::pair<std::string, U64>> placesOf(RegisterMapFile const& map) {
    std::vector<std::pair<std::string, U64>> places;
    for (auto const& it : map.registers())
        places.emplace_back(it.path, it.offset);
    return places;
}

TEST(RegisterMapFile, HasARegisterALineByRisingOffset) {
    auto const map = mapOf("# a chip\n\n  z/last\t0x1C # behind\r\na[0]/first 0\nmiddle 16\n\t\n0x4 0X4");
    EXPECT_THAT(placesOf(map), ElementsAre(Pair("a[0]/first", 0u), Pair("0x4", 4u), Pair("middle", 16u),
                                           Pair("z/last", 0x1Cu)));
    EXPECT_EQ(map.registers().back().line, 3u);
    EXPECT_EQ(map.size(), 0x20u);
    EXPECT_EQ(map.file(), "chip.map");
    EXPECT_EQ(mapOf("# nothing\n").size(), 0u);
    EXPECT_EQ(mapOf("far 0x3FFFFFFF8").size(), U64{0x3FFFFFFFC});
}

TEST(RegisterMapFile, FaultsAreNamedWithTheirLine) {
    EXPECT_EQ(faultOf("a 0\n\nb"), "chip.map: line 3: b has no offset");
    EXPECT_EQ(faultOf("a # 4"), "chip.map: line 1: a has no offset");
    EXPECT_EQ(faultOf("a 0\nb 4 c d"), "chip.map: line 2: \"c\" behind path and offset");
    for (std::string const text :
         {"four", "0x", "4x", "-4", "+4", "0x4g", "1.5", "18446744073709551616", "0x10000000000000000"})
        EXPECT_EQ(faultOf("a " + text), "chip.map: line 1: \"" + text + "\" is not an offset");
    EXPECT_EQ(faultOf("a 4\nb 0x6"), "chip.map: line 2: offset 0x6 is not a multiple of 4");
    EXPECT_EQ(faultOf("a 0x3FFFFFFFC"), "chip.map: line 1: offset 0x3fffffffc is above 0x3fffffff8");
    EXPECT_EQ(faultOf("a 0\nb 4\na 8"), "chip.map: line 3: a is there already, in line 1");
    EXPECT_EQ(faultOf("b 12\na 4\nc 0xC"), "chip.map: line 3: offset 0xc is that of b already, in line 1");
}

TEST(RegisterMapFile, ThatCannotBeReadIsNamedWithItsReason) {
    auto const read = [](std::string const& path) {
        return failureOf<RegisterMapException>([&] { RegisterMapFile::read(path); });
    };
    EXPECT_EQ(read("/nowhere/chip.map"), "/nowhere/chip.map: No such file or directory");
    EXPECT_EQ(read("/"), "/: Is a directory");
}

/** A file in the place of a chip: 16 words of 0xEEEEEEEE. */
class MappedRegisterBusTest : public testing::Test {
protected:
    MappedRegisterBusTest() { contentsOfIs(file, std::string(64, '\xEE')); }

    U32 wordAt(std::size_t offset) {
        U32 word = 0;
        std::memcpy(&word, contentsOf(file).data() + offset, sizeof(word));
        return word;
    }
    std::string refusal(std::string const& path, U64 base = 0) {
        return failureOf<Belmo::ResourceException>(
            [&] { MappedRegisterBus(path, mapOf("a 0\nb 0x3C"), base); });
    }

    TemporaryDirectory directory;
    std::string const file = directory.path("chip");
};

TEST_F(MappedRegisterBusTest, WordsStandAtTheirOffsets) {
    MappedRegisterBus bus(file, mapOf("control 0x20\ndata[0] 4\ndata[1] 8"));
    auto const data0 = bus.address("data[0]");
    auto const data1 = bus.address("data[1]");
    auto const control = bus.address("control");
    EXPECT_EQ(bus.read(data0), 0xEEEEEEEEu);
    RegisterHandle const row[] = {data0, data1, RegisterHandle(), control};
    U32 const words[] = {0x11223344, 2, 3, 0x80000000};
    bus.writeRow(row, words);
    bus.write(data1, 7);
    EXPECT_EQ(wordAt(4), 0x11223344u);
    EXPECT_EQ(wordAt(8), 7u);
    EXPECT_EQ(wordAt(0x20), 0x80000000u);
    for (std::size_t const untouched : {0u, 0xCu, 0x1Cu, 0x24u, 0x3Cu})
        EXPECT_EQ(wordAt(untouched), 0xEEEEEEEEu) << untouched;
    EXPECT_EQ(bus.read(control), 0x80000000u);
    EXPECT_EQ(contentsOf(file)[4], std::endian::native == std::endian::little ? 0x44 : 0x11);
}

TEST_F(MappedRegisterBusTest, OffsetsCountFromTheBase) {
    for (U64 const base : {0x20u, 0x1004u}) {
        contentsOfIs(file, std::string(0x2000, '\0'));
        MappedRegisterBus bus(file, mapOf("a 8"), base);
        bus.write(bus.address("a"), 5);
        EXPECT_EQ(wordAt(base + 8), 5u);
    }
}

TEST_F(MappedRegisterBusTest, HandlesAndPathsBelongTogether) {
    MappedRegisterBus bus(file, mapOf("a 0\nb 0x3C\nc 8"));
    for (auto const* path : {"a", "b", "c"})
        EXPECT_EQ(bus.path(bus.address(path)), path);
    EXPECT_EQ(failureOf<UnknownRegisterException>([&] { bus.address("d"); }),
              UnknownRegisterException("d").what());
    EXPECT_DEATH(bus.read(RegisterHandle{16}), "");
    EXPECT_DEATH(bus.write(RegisterHandle(), 0), "");
    EXPECT_DEATH(static_cast<void>(bus.path(RegisterHandle{1})), "");
}

TEST_F(MappedRegisterBusTest, AFileThatDoesNotReachSoFarIsNamedWithTheLine) {
    contentsOfIs(file, std::string(63, '\0'));
    EXPECT_EQ(refusal(file), "chip.map: line 2: offset 0x3c is beyond the 63 bytes that are mapped");
    contentsOfIs(file, std::string(67, '\0'));
    EXPECT_EQ(refusal(file), "");
    EXPECT_EQ(refusal(file, 4), "chip.map: line 2: offset 0x3c is beyond the 63 bytes that are mapped");
    EXPECT_EQ(refusal(file, 0x44), file + " has 67 bytes, and ends before 0x44");
    EXPECT_EQ(refusal(file, 2), file + ": base 0x2 is not a multiple of 4");
}

TEST_F(MappedRegisterBusTest, WhatCannotBeMappedIsNamedWithTheReason) {
    EXPECT_EQ(refusal(directory.path("none")),
              "cannot open " + directory.path("none") + ": No such file or directory");
    EXPECT_THAT(refusal(directory.path()), HasSubstr("Is a directory"));
    EXPECT_EQ(refusal("/dev/null"), "cannot map /dev/null: No such device");
    MappedRegisterBus const bus(file, mapOf("a 0"));
    EXPECT_EQ(refusal(file), file + " is in use by another");
}

TEST_F(MappedRegisterBusTest, AFileThatMayNotBeWrittenIsRefused) {
    std::filesystem::permissions(file,
                                 std::filesystem::perms::owner_read | std::filesystem::perms::others_read);
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    // Who may do everything stops being that first.
    ChildProcess child([&] {
        if (::geteuid() == 0 && ::setuid(65534) != 0) return 2;
        return refusal(file) == "cannot open " + file + ": Permission denied" ? 0 : 1;
    });
    EXPECT_EQ(child.ended(), 0);
    EXPECT_EQ(contentsOf(file), std::string(64, '\xEE'));
}

/** Ports of a chip whose registers stand in an order of their own. */
class TablesOnMappedRegisters : public testing::Test {
protected:
    TablesOnMappedRegisters() {
        for (U32 port = 0; port < profile->numPorts; ++port)
            map += fmt::format("egress/port[{}]/vlan_cfg {:#x}\n", port, placeOf(port));
        contentsOfIs(file, std::string(0x1000, '\0'));
    }
    static U32 placeOf(U32 port) { return 0xF00 - 0x10 * port; }

    /** The process begins anew; the register writes of its start. */
    std::size_t start(StartMode mode) {
        ports.reset();
        framework.reset();
        bus.reset();
        bus = Belmo::make<Chip::RecordingBus>(Belmo::make<MappedRegisterBus>(file, mapOf(map)));
        framework =
            std::make_unique<TableFramework>(profile, bus, mappedShadowStore(directory.path("shadow")));
        ports = NerioSwitchTable::portConfigTableFactory("ports");
        framework->tableIs(ports, mode);
        return bus->take().size();
    }
    U32 wordOf(U32 port) {
        U32 word = 0;
        std::memcpy(&word, contentsOf(file).data() + placeOf(port), sizeof(word));
        return word;
    }

    TemporaryDirectory directory;
    std::string const file = directory.path("chip");
    std::string map;
    Belmo::Ptr<NerioSwitch::ProfileInfo> const profile = NerioSwitch::profilePreset("default");
    Belmo::Ptr<Chip::RecordingBus> bus;
    std::unique_ptr<TableFramework> framework;
    Belmo::Ptr<NerioSwitchTable::PortConfigTable> ports;
};

using NerioSwitchTable::PortConfigKey;
using NerioSwitchTable::PortConfigMode;
using NerioSwitchTable::PortConfigResult;

TEST_F(TablesOnMappedRegisters, RowsStandWhereTheMapHasThem) {
    EXPECT_EQ(start(StartMode::cold), profile->numPorts);
    ports->entryIs(PortConfigKey(5), PortConfigResult().portModeIs(PortConfigMode::trunk).txDisabledIs(true));
    ports->entryIs(PortConfigKey(51), PortConfigResult().portModeIs(PortConfigMode::qinq));
    EXPECT_EQ(wordOf(4), 1u);
    EXPECT_EQ(wordOf(5), 4u);
    EXPECT_EQ(wordOf(51), 2u);
    auto const bytes = contentsOf(file);
    auto const set = std::ranges::count_if(bytes, [](char byte) { return byte != 0; });
    EXPECT_EQ(set, profile->numPorts);
}

TEST_F(TablesOnMappedRegisters, AWarmRestartWritesNothingThatIsNotOwed) {
    start(StartMode::cold);
    auto const trunk = PortConfigResult().portModeIs(PortConfigMode::trunk);
    ports->entryIs(PortConfigKey(5), trunk);
    auto const before = contentsOf(file);
    EXPECT_EQ(start(StartMode::warm), 0u);
    EXPECT_EQ(ports->entry(PortConfigKey(5)), trunk);
    ports->entryIs(PortConfigKey(5), trunk);
    EXPECT_EQ(bus->take().size(), 0u);
    EXPECT_EQ(contentsOf(file), before);
    ports->profileConvertorPtr()->hwTable(0)->shadow().drop(7);
    EXPECT_EQ(start(StartMode::warm), 1u);
    EXPECT_EQ(contentsOf(file), before);
}

TEST_F(TablesOnMappedRegisters, ARegisterThatTheMapLacksIsNamedAndNothingIsWritten) {
    map.erase(map.rfind("egress/port[51]"));
    EXPECT_THAT(failureOf<UnknownRegisterException>([&] { start(StartMode::cold); }),
                HasSubstr("egress/port[51]/vlan_cfg"));
    EXPECT_EQ(contentsOf(file), std::string(0x1000, '\0'));
}

/** `nerio registers`, and `nerio script` over what it prints. */
class RegistersCommandTest : public testing::Test {
protected:
    NerioTest::CommandResult script(std::vector<std::string> const& more, std::string const& input = {}) {
        std::vector<std::string> arguments{"script", "--bus", bus, "--registers", map};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runCommand(arguments, input);
    }

    TemporaryDirectory directory;
    std::string const bus = directory.path("bus");
    std::string const map = directory.path("map");
};

TEST_F(RegistersCommandTest, PrintsEveryRegisterOfTheProfilesChip) {
    auto const file = directory.path("chip.json");
    contentsOfIs(file, R"({"preset":"api4","numPorts":8})");
    for (auto const& name : std::vector<std::string>{"default", "api2", "api10", file}) {
        auto const result = runCommand({"registers", "--profile", name});
        ASSERT_EQ(result.status, 0) << result.errors;
        auto profile = NerioSwitch::profilePreset(name == file ? "api4" : name);
        if (name == file) profile->numPorts = 8;
        std::vector<std::pair<std::string, U64>> expected;
        Chip::RegisterMap const registers(*profile);
        for (auto const& path : registers.paths())
            expected.emplace_back(path, 4 * expected.size());
        EXPECT_EQ(placesOf(mapOf(result.output)), expected) << name;
    }
    EXPECT_EQ(runCommand({"registers"}).output, runCommand({"registers", "--profile", "default"}).output);
}

TEST_F(RegistersCommandTest, AProfileThatIsNoneIsBadInput) {
    auto const expectRefused = [](std::string const& profile, std::string const& text) {
        auto const result = runCommand({"registers", "--profile", profile});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio registers: " + profile + ": " + text + "\n");
    };
    expectRefused("api1", "no preset, and no file of a profile: No such file or directory");
    auto const file = directory.path("chip.json");
    contentsOfIs(file, R"({"preset":"api1"})");
    expectRefused(file, "/preset: unknown profile preset \"api1\"");
    contentsOfIs(file, R"({"profile":{"numPorts":"many"}})");
    EXPECT_THAT(runCommand({"registers", "--profile", file}).errors,
                StartsWith("nerio registers: " + file + ": /profile/numPorts: "));
    contentsOfIs(file, "{\n]");
    EXPECT_THAT(runCommand({"registers", "--profile", file}).errors,
                StartsWith("nerio registers: " + file + ": line 2, column 1: not JSON: "));
}

TEST_F(RegistersCommandTest, AScriptWritesTheSameRegistersInAFileAsInTheSimulatedChip) {
    contentsOfIs(map, runCommand({"registers", "--profile", "api7"}).output);
    contentsOfIs(bus, std::string(0x10000, '\0'));
    auto const lines = directory.path("lines");
    contentsOfIs(lines, R"({"op":"table","family":"portConfig","name":"ports"}
{"op":"table","family":"hashTest","name":"hash"}
{"op":"table","family":"vlanMembership","name":"vlans"}
{"op":"start","mode":"cold"}
{"op":"entryIs","table":"ports","key":{"portId":5},"result":{"portMode":"trunk"}}
{"op":"entryIs","table":"hash","key":17,"result":4}
{"op":"registers"}
{"op":"restart","mode":"warm"}
{"op":"registers"}
)");
    auto const simulated = runCommand({"script", lines, "--profile", "api7"});
    auto const mapped = script({lines, "--profile", "api7"});
    EXPECT_EQ(simulated.status, 0);
    EXPECT_THAT(simulated.output, HasSubstr("\"writes\":[[\"egress/port[0]/vlan_cfg\","));
    EXPECT_EQ(mapped.status, 0) << mapped.errors;
    EXPECT_EQ(mapped.output, simulated.output);
    MappedRegisterBus after(bus, RegisterMapFile::read(map));
    EXPECT_EQ(after.read(after.address("egress/port[5]/vlan_cfg")), 0u);
    EXPECT_EQ(after.read(after.address("egress/port[6]/vlan_cfg")), 1u);
}

TEST_F(RegistersCommandTest, AShadowInADirectoryIsThatOfTheBusAlone) {
    contentsOfIs(map, runCommand({"registers"}).output);
    contentsOfIs(bus, std::string(0x10000, '\0'));
    std::string const ports = "{\"op\":\"table\",\"family\":\"portConfig\",\"name\":\"ports\"}\n";
    std::string const start = ports + "{\"op\":\"start\",\"mode\":\"warm\"}\n{\"op\":\"registers\"}\n";
    auto const kept = directory.path("switch");
    EXPECT_THAT(script({"--switch", kept}, start).output, HasSubstr("egress/port[51]/vlan_cfg"));
    EXPECT_THAT(script({"--switch", kept}, start).output, HasSubstr("\"writes\":[]"));
    // The simulated chip of that directory is another one.
    EXPECT_THAT(runCommand({"script", "--switch", kept}, start).output,
                HasSubstr("egress/port[51]/vlan_cfg"));
}

TEST_F(RegistersCommandTest, WhatOnlyTheSimulatedChipDoesIsRefused) {
    contentsOfIs(map, runCommand({"registers"}).output);
    contentsOfIs(bus, std::string(0x10000, '\0'));
    auto const result = script({}, R"({"op":"table","family":"hashTest","name":"h"}
{"op":"start","mode":"cold"}
{"op":"hit","table":"h","hwTable":0,"index":0}
{"op":"poll","time":1}
)");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        result.output,
        HasSubstr(R"({"ok":false,"error":"ScriptError","message":"op: hit needs the simulated chip"})"));
    EXPECT_EQ(NerioTest::lineCount(result.output), 4);
}

TEST_F(RegistersCommandTest, AStartThatAMapRefusesWritesNothing) {
    contentsOfIs(map, "egress/port[0]/vlan_cfg 0\n");
    contentsOfIs(bus, std::string(64, '\0'));
    auto const profile = directory.path("chip.json");
    contentsOfIs(profile, R"({"numPorts":1})");
    auto const result = script({"--profile", profile}, R"({"op":"table","family":"portConfig","name":"ports"}
{"op":"table","family":"l2Control","name":"l2"}
{"op":"start","mode":"cold"}
)");
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("\"error\":\"UnknownRegisterException\""));
    EXPECT_EQ(contentsOf(bus), std::string(64, '\0'));
}

TEST_F(RegistersCommandTest, MapAndFileAtFaultAreOneLine) {
    auto const expectRefused = [&](int status, std::string const& text) {
        auto const result = script({}, "{\"op\":\"registers\"}\n");
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "nerio script: " + text + "\n");
    };
    expectRefused(2, map + ": No such file or directory");
    contentsOfIs(map, "a 4\nb 5\n");
    expectRefused(2, map + ": line 2: offset 0x5 is not a multiple of 4");
    contentsOfIs(map, "a 4\nb 8\n");
    expectRefused(1, "cannot open " + bus + ": No such file or directory");
    contentsOfIs(bus, "12345678");
    expectRefused(2, map + ": line 2: offset 0x8 is beyond the 8 bytes that are mapped");
    EXPECT_EQ(runCommand({"script", "--bus", bus}).status, 2);
    EXPECT_EQ(runCommand({"script", "--registers", map}).status, 2);
}

}  // namespace
