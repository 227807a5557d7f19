#include "NerioSwitchTable/NerioCoppRegisterMapping.h"

#include <cstddef>
#include <initializer_list>
#include <utility>

#include "Sorn/Trace.h"

namespace NerioSwitchTable {

using NerioSwitch::ProfileHwApi;
using NerioSwitchApi::HwIndex;
using Addresses = Belmo::Ptr<NerioSwitchApi::HwAddressColl const>;

namespace {

Sorn::TraceHandle handle("NerioCoppRegisterMapping");

constexpr std::size_t classes = std::size_t{CoppEntryKey::max} + 1;
/** The registers of a version by index; null where it has none. */
using Names = std::array<char const*, classes>;

struct Limiter {
    CoppClass policed;
    char const* name;
};

constexpr Names with(std::initializer_list<Limiter> limiters, Names names = {}) {
    for (auto const& limiter : limiters)
        names[static_cast<std::size_t>(limiter.policed)] = limiter.name;
    return names;
}

constexpr Names namesHwApi0 = with({{CoppClass::interval, "interval_period"},
                                    {CoppClass::reservedMac, "reserved_mac_limit"},
                                    {CoppClass::igmp, "igmp_limit"},
                                    {CoppClass::linkLocal, "link_local_limit"},
                                    {CoppClass::l2Packet, "packet_forwarding_limit"},
                                    {CoppClass::macLearn, "mac_learn_limit"}});

constexpr Names namesHwApi41 = with({{CoppClass::l2Packet, "l2_packet_limit"},
                                     {CoppClass::l3HighPacket, "l3_high_packet_limit"},
                                     {CoppClass::l3LowPacket, "l3_low_packet_limit"},
                                     {CoppClass::multicastPacket, "multicast_packet_limit"},
                                     {CoppClass::l3Exception, "l3_exception_limit"},
                                     {CoppClass::others, "default_limit"}},
                                    namesHwApi0);

constexpr Names namesHwApi51 =
    with({{CoppClass::cpuCritical, "cpu_critical_limit"}, {CoppClass::ptp, "ptp_limit"}}, namesHwApi41);

char const* nameOf(Names const& version, HwIndex index) {
    return index < version.size() ? version[index] : nullptr;
}

void traceCall(char const* signature, HwIndex index) {
    SORN_TRACE(handle, 8, "{} HwIndex:{}", signature, index);
}

}  // namespace

CoppHwTableRegisterMapping::CoppHwTableRegisterMapping(Belmo::String name, Belmo::String prefix)
    : RateLimiterRegisterMapping(std::move(name), std::move(prefix)) {}
CoppHwTableRegisterMapping::~CoppHwTableRegisterMapping() = default;

Addresses CoppHwTableRegisterMapping::getRegister(HwIndex index) const {
    traceCall(__PRETTY_FUNCTION__, index);
    return addressOfLimiter(nameOf(namesHwApi0, index));
}

CoppHwTableRegisterMappingHwApi41::CoppHwTableRegisterMappingHwApi41(Belmo::String name, Belmo::String prefix)
    : RateLimiterRegisterMapping(std::move(name), std::move(prefix)) {}
CoppHwTableRegisterMappingHwApi41::~CoppHwTableRegisterMappingHwApi41() = default;

Addresses CoppHwTableRegisterMappingHwApi41::getRegister(HwIndex index) const {
    traceCall(__PRETTY_FUNCTION__, index);
    return addressOfLimiter(nameOf(namesHwApi41, index));
}

CoppHwTableRegisterMappingHwApi51::CoppHwTableRegisterMappingHwApi51(Belmo::String name, Belmo::String prefix)
    : RateLimiterRegisterMapping(std::move(name), std::move(prefix)) {}
CoppHwTableRegisterMappingHwApi51::~CoppHwTableRegisterMappingHwApi51() = default;

Addresses CoppHwTableRegisterMappingHwApi51::getRegister(HwIndex index) const {
    traceCall(__PRETTY_FUNCTION__, index);
    return addressOfLimiter(nameOf(namesHwApi51, index));
}

CoppHwTableRegisterMappingHwApi61::~CoppHwTableRegisterMappingHwApi61() = default;

Addresses CoppHwTableRegisterMappingHwApi61::getRegister(HwIndex index) const {
    traceCall(__PRETTY_FUNCTION__, index);
    switch (index) {
        case static_cast<HwIndex>(CoppClass::natAclPacket):
            return addressOfLimiter("nat_acl_packet_limit");
        case static_cast<HwIndex>(CoppClass::mirror):
            return addressOfLimiter("mirror_limit");
        default:
            return CoppHwTableRegisterMappingHwApi51::getRegister(index);
    }
}

CoppHwTableRegisterMappingHwApi62::~CoppHwTableRegisterMappingHwApi62() = default;

Addresses CoppHwTableRegisterMappingHwApi62::getRegister(HwIndex index) const {
    traceCall(__PRETTY_FUNCTION__, index);
    if (index == static_cast<HwIndex>(CoppClass::interval))
        return NerioSwitchApi::addressOf("header/copp_interval");
    return CoppHwTableRegisterMappingHwApi61::getRegister(index);
}

Belmo::Ptr<RateLimiterRegisterMapping> coppRegisterMapping(ProfileHwApi hwApi, Belmo::String const& name,
                                                           Belmo::String const& prefix) {
    if (hwApi < ProfileHwApi(4, 1)) return coppHwTableRegisterMappingFactory(name, prefix);
    if (hwApi < ProfileHwApi(5, 1)) return coppHwTableRegisterMappingHwApi41Factory(name, prefix);
    if (hwApi < ProfileHwApi(6, 1)) return coppHwTableRegisterMappingHwApi51Factory(name, prefix);
    if (hwApi < ProfileHwApi(6, 2)) return coppHwTableRegisterMappingHwApi61Factory(name, prefix);
    return coppHwTableRegisterMappingHwApi62Factory(name, prefix);
}

Belmo::Ptr<CoppHwTableRegisterMapping> coppHwTableRegisterMappingFactory(Belmo::String const& name,
                                                                         Belmo::String const& prefix) {
    return Belmo::make<CoppHwTableRegisterMapping>(name, prefix);
}

Belmo::Ptr<CoppHwTableRegisterMappingHwApi41> coppHwTableRegisterMappingHwApi41Factory(
    Belmo::String const& name, Belmo::String const& prefix) {
    return Belmo::make<CoppHwTableRegisterMappingHwApi41>(name, prefix);
}

Belmo::Ptr<CoppHwTableRegisterMappingHwApi51> coppHwTableRegisterMappingHwApi51Factory(
    Belmo::String const& name, Belmo::String const& prefix) {
    return Belmo::make<CoppHwTableRegisterMappingHwApi51>(name, prefix);
}

Belmo::Ptr<CoppHwTableRegisterMappingHwApi61> coppHwTableRegisterMappingHwApi61Factory(
    Belmo::String const& name, Belmo::String const& prefix) {
    return Belmo::make<CoppHwTableRegisterMappingHwApi61>(name, prefix);
}

Belmo::Ptr<CoppHwTableRegisterMappingHwApi62> coppHwTableRegisterMappingHwApi62Factory(
    Belmo::String const& name, Belmo::String const& prefix) {
    return Belmo::make<CoppHwTableRegisterMappingHwApi62>(name, prefix);
}

}  // namespace NerioSwitchTable
