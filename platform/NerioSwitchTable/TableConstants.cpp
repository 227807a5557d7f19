#include "NerioSwitchTable/TableConstants.h"

#include <fmt/format.h>

#include "Belmo/Exceptions.h"

namespace NerioSwitchTable {

namespace {

struct TableNames {
    TableIndex index;
    char const* tableName;
    char const* cliName;
};

constexpr TableNames tableNames[] = {
    {1, "HashTest", "hash test"},
    {2, "MacVlan", "MAC/VLAN"},
    {3, "FloodSet", "flood set"},
    {4, "VlanMembership", "VLAN membership"},
    {5, "RxPortMirror", "Rx port mirror"},
    {7, "L3FloodArp", "L3 flood ARP"},
    {8, "VlanGroup", "VLAN group"},
    {9, "NatRewrite", "NAT rewrite"},
    {35, "Lpm32", "LPM 32"},
    {36, "Lpm29", "LPM 29"},
    {37, "Lpm26", "LPM 26"},
    {38, "Lpm23", "LPM 23"},
    {39, "Lpm20", "LPM 20"},
    {40, "Lpm17", "LPM 17"},
    {41, "Lpm14", "LPM 14"},
    {42, "Lpm11", "LPM 11"},
    {43, "SG", "(S,G)"},
    {46, "L3FloodBitmap", "L3 flood bitmap"},
    {47, "NatMatch", "NAT match"},
    {55, "NatDynMatch", "NAT dynamic match"},
    {67, "StarG", "(*,G)"},
    {69, "Acl0", "ACL 0"},
    {70, "Acl1", "ACL 1"},
    {71, "Acl2", "ACL 2"},
    {72, "AclIndirectCounter", "ACL indirect counter"},
    {73, "ProtocolRemap", "protocol remap"},
    {74, "Acl5", "ACL 5"},
    {75, "AclPortRange", "ACL port range"},
};

TableNames const* namesOf(TableIndex index) {
    for (auto const& names : tableNames) {
        if (names.index == index) return &names;
    }
    return nullptr;
}

}  // namespace

TableIndex TableIndexInstance(U32 number) {
    if (number > 0xFF) {
        throw Belmo::RangeException(
            "NerioSwitchApi::TableIndex::value < NerioSwitchApi::TableIndex::min or > "
            "NerioSwitchApi::TableIndex::max not allowed");
    }
    return static_cast<TableIndex>(number);
}

Belmo::String TableConstants::tableName(TableIndex index) {
    auto const* names = namesOf(index);
    return names != nullptr ? Belmo::String(names->tableName) : fmt::format("Table{}", index);
}

Belmo::String TableConstants::cliName(TableIndex index) {
    auto const* names = namesOf(index);
    return names != nullptr ? Belmo::String(names->cliName) : fmt::format("table {}", index);
}

}  // namespace NerioSwitchTable
