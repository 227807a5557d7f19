#pragma once

#include "Belmo/RangedIndex.h"
#include "NerioSwitch/ProfileHwApi.h"
#include "Sorn/Enum.h"

#include "NerioSwitchTable/NerioTableRateLimiter.h"

/*
 * Which register of the CPU's policers a key stands for. Traffic classes came and were split with the
 * hardware API, so there is a mapping for each of its versions at which that happened. A key without a
 * register, which a row without one stands for, has no effect in hardware.
 */
namespace NerioSwitchTable {

/** What a key polices: key 0 is the interval of all limits, any other the limit of a class of traffic. */
SORN_ENUM(CoppClass, U8, (interval, 0), (reservedMac, 1), (igmp, 2), (linkLocal, 3), (l2Packet, 4),
          (cpuCritical, 5), (natAclPacket, 6), (ptp, 7), (l3HighPacket, 8), (l3LowPacket, 9),
          (multicastPacket, 10), (l3Exception, 11), (macLearn, 12), (mirror, 13), (others, 14));

/** The hardware index of a policer, 0 to 14: a `CoppClass` by number. */
BELMO_INDEX(NerioSwitchTable, CoppEntryKey, U8, min, 0, max, 14, min);

/** Hardware APIs below 4.1. Class 4 is all packets that are forwarded. */
class NERIO_SWITCH_TABLE_EXPORT CoppHwTableRegisterMapping : public RateLimiterRegisterMapping {
public:
    CoppHwTableRegisterMapping(Belmo::String name, Belmo::String prefix);
    ~CoppHwTableRegisterMapping() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** From 4.1 on: routed packets have classes of their own, and there is one for all others. */
class NERIO_SWITCH_TABLE_EXPORT CoppHwTableRegisterMappingHwApi41 : public RateLimiterRegisterMapping {
public:
    CoppHwTableRegisterMappingHwApi41(Belmo::String name, Belmo::String prefix);
    ~CoppHwTableRegisterMappingHwApi41() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** From 5.1 on: with packets that are critical to the CPU, and those of the clock. */
class NERIO_SWITCH_TABLE_EXPORT CoppHwTableRegisterMappingHwApi51 : public RateLimiterRegisterMapping {
public:
    CoppHwTableRegisterMappingHwApi51(Belmo::String name, Belmo::String prefix);
    ~CoppHwTableRegisterMappingHwApi51() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** From 6.1 on: with mirrored packets, and those of address translation and ACLs. */
class NERIO_SWITCH_TABLE_EXPORT CoppHwTableRegisterMappingHwApi61 : public CoppHwTableRegisterMappingHwApi51 {
public:
    using CoppHwTableRegisterMappingHwApi51::CoppHwTableRegisterMappingHwApi51;
    ~CoppHwTableRegisterMappingHwApi61() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** From 6.2 on: the interval is one register of the whole chip, outside of the blocks. */
class NERIO_SWITCH_TABLE_EXPORT CoppHwTableRegisterMappingHwApi62 : public CoppHwTableRegisterMappingHwApi61 {
public:
    using CoppHwTableRegisterMappingHwApi61::CoppHwTableRegisterMappingHwApi61;
    ~CoppHwTableRegisterMappingHwApi62() override;

    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> getRegister(NerioSwitchApi::HwIndex index) const override;
};

/** The mapping of a hardware API for a hardware table's name and the prefix of its registers. */
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<RateLimiterRegisterMapping> coppRegisterMapping(
    NerioSwitch::ProfileHwApi hwApi, Belmo::String const& name, Belmo::String const& prefix);

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppHwTableRegisterMapping> coppHwTableRegisterMappingFactory(
    Belmo::String const& name, Belmo::String const& prefix);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppHwTableRegisterMappingHwApi41>
coppHwTableRegisterMappingHwApi41Factory(Belmo::String const& name, Belmo::String const& prefix);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppHwTableRegisterMappingHwApi51>
coppHwTableRegisterMappingHwApi51Factory(Belmo::String const& name, Belmo::String const& prefix);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppHwTableRegisterMappingHwApi61>
coppHwTableRegisterMappingHwApi61Factory(Belmo::String const& name, Belmo::String const& prefix);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<CoppHwTableRegisterMappingHwApi62>
coppHwTableRegisterMappingHwApi62Factory(Belmo::String const& name, Belmo::String const& prefix);

}  // namespace NerioSwitchTable
