#pragma once

#include <array>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileHwApi.h"
#include "Sorn/Enum.h"

namespace NerioSwitch {

/** Version of the VLAN register family. */
using RegisterFormatVersion = U32;

/** Hardware table families in the chip's layout. */
SORN_ENUM(TableLayoutEnum, U32, (tableLayoutAcl, 0), (tableLayoutL2, 5), (tableLayoutEgress, 8),
          (tableLayoutL3, 10), (tableLayoutVlan, 21));

/** The ports of one pipe, in chip port numbers, both ends inclusive. */
struct PipeRangeInfo {
    U16 pipeId = 0;
    U16 firstPort = 0;
    U16 lastPort = 0;

    U16 numPorts() const { return static_cast<U16>(lastPort + 1 - firstPort); }
    friend bool operator==(PipeRangeInfo const&, PipeRangeInfo const&) = default;
};

/** Where one chip port sits: its pipe, and its number inside the pipe. */
struct PipeInfo {
    U32 portId = 0;
    U16 pipeId = 0;
    U16 pipePort = 0;

    friend bool operator==(PipeInfo const&, PipeInfo const&) = default;
};

/** One hardware table family: how often it exists, how long it is, and which pipe is served by what. */
struct TableLayout {
    U16 tables = 0;
    U16 pipelines = 0;
    U16 processors = 0;
    U32 size = 0;
    std::vector<U16> pipeToTable;
    std::vector<U16> pipeToProcessor;

    friend bool operator==(TableLayout const&, TableLayout const&) = default;
};

using PipeRangeInfoMap = std::map<U16, PipeRangeInfo>;
using PipeInfoMap = std::map<U32, PipeInfo>;

/**
 * What the driver knows of the chip at hand. Built before any table and fixed from then on: tables hold it
 * as `Belmo::Ptr<ProfileInfo const>` and read it without locks.
 */
class BELMO_EXPORT ProfileInfo : public Belmo::Node {
public:
    ProfileInfo();
    ~ProfileInfo() override;

    std::array<Belmo::String, 2> name{"demo", "demo"};
    PipeRangeInfoMap ingressPipeRangeInfo;
    PipeRangeInfoMap egressPipeRangeInfo;
    PipeInfoMap portIdToIngressPipe;
    PipeInfoMap portIdToEgressPipe;
    RegisterFormatVersion vlanRegVer = 0;
    U32 aclRegVer = 0;
    U16 numPorts = 0;
    U16 numPipelines = 0;
    bool hasCpuPipeline = false;
    U16 cpuPort = 52;
    bool noMuxInRegName = false;
    ProfileHwApi hwApi;
    bool floodSetParity = false;
    U32 numVrfs = 1;
    bool aclPipeModeCapable = false;
    bool natProfile = false;
    std::map<TableLayoutEnum, TableLayout> layouts;
    /** The two numbers whose product is the row count of the MAC/VLAN table. */
    std::array<U32, 2> macVlanRows{};
    /** Supported entry counts by name, such as "floodSet". */
    std::map<Belmo::String, U32> supportedEntries;

    /** The first of the two names: what hardware tables are named by. */
    Belmo::String const& profileName() const { return name[0]; }
    U32 ingressPipeRangeInfos() const { return static_cast<U32>(ingressPipeRangeInfo.size()); }
    U16 cpuPortId() const { return cpuPort; }

    /** Copies of a family's hardware table, the CPU pipeline's not counted; 0 for an unknown family. */
    U16 numTables(TableLayoutEnum layout) const;
    /** Pipes of a family. */
    U16 numPipelinesOfTable(TableLayoutEnum layout) const;
    /** Processors of a family. */
    U16 numProcessors(TableLayoutEnum layout) const;
    /** The table copy that serves a pipe; several pipes may share one. 0 for a pipe without a record. */
    U16 pipeToTableId(U32 pipe, TableLayoutEnum layout) const;
    /** The processor that serves a pipe. 0 for a pipe without a record. */
    U16 pipeToProcessorId(U32 pipe, TableLayoutEnum layout) const;
    /** The ingress pipe of a chip port; 0 for a port without one. */
    U16 portToIngressPipeId(U32 port) const;
    /** Where a port sits on the ingress side; pipe 0, port 0 for a port without a record. */
    PipeInfo ingressPipeOfPort(U32 port) const;
    /** The layout record of a family, or nothing. */
    TableLayout const* getHardwareTableLayout(TableLayoutEnum layout) const;

    /** Sets the ingress pipes, and with them where each of their ports sits. */
    void ingressPipesAre(std::vector<PipeRangeInfo> const& pipes);
    /** Sets the egress pipes, and with them where each of their ports sits. */
    void egressPipesAre(std::vector<PipeRangeInfo> const& pipes);
};

/** A profile by name, to start from; null for an unknown name. "default" is a 52-port chip with two pipes. */
BELMO_EXPORT Belmo::Ptr<ProfileInfo> profilePreset(Belmo::String const& name);

}  // namespace NerioSwitch
