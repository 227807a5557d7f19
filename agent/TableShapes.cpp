#include "agent/TableShapes.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

#include "NerioSwitchApi/HashTable.h"
#include "NerioSwitchApi/Shadow.h"

#include "agent/PathBus.h"

namespace Agent {

namespace {

HwTableShape shapeOf(NerioSwitchApi::SwTableProfileConvertor const& convertor,
                     NerioSwitchApi::HwTableDescriptor const& descriptor) {
    auto const& config = *convertor.hwTable(descriptor.id());
    HwTableShape shape;
    shape.id = descriptor.id();
    shape.firstRow = descriptor.firstIndex();
    shape.lastRow = descriptor.lastIndex();
    shape.rowsShareRegisters = config.rowsShareRegisters();
    auto const* hash = dynamic_cast<NerioSwitchApi::PhysicalHashTableConvertor const*>(&convertor);
    if (hash != nullptr) shape.rowsOfWay = hash->tableSize();
    shape.layouts = convertor.rowLayouts(descriptor.id());
    for (auto const handle : config.registersOf(shape.firstRow))
        shape.registers.push_back(handle.exists() ? config.bus().path(handle) : Belmo::String());
    return shape;
}

std::vector<AlikeTables> grouped(std::vector<HwTableShape> shapes) {
    std::vector<AlikeTables> groups;
    for (auto& shape : shapes) {
        auto const found = std::ranges::find_if(
            groups, [&](AlikeTables const& group) { return sameLayouts(group.layouts(), shape.layouts); });
        if (found != groups.end()) {
            found->tables.push_back(std::move(shape));
        } else {
            groups.push_back({{std::move(shape)}});
        }
    }
    return groups;
}

/** The tables of a family of which all others have the rows. */
std::vector<HwTableShape> shapesOf(Family const& family, ProfilePtr const& profile) {
    Belmo::String const name(family.name);
    bool const isAclHash =
        std::ranges::find(family.numbers, "physTableIdx", &FamilyNumber::name) != family.numbers.end();
    if (!isAclHash) return hwTableShapes({name, name, {}}, profile);
    std::vector<HwTableShape> all;
    for (U64 const number : {0u, 1u, 2u, 5u}) {
        for (auto& shape : hwTableShapes({name, name, {{"physTableIdx", number}}}, profile)) {
            shape.label = fmt::format("physTableIdx {}", number);
            all.push_back(std::move(shape));
        }
    }
    return all;
}

bool sameGroups(std::vector<AlikeTables> const& left, std::vector<AlikeTables> const& right) {
    return std::ranges::equal(left, right, [](AlikeTables const& one, AlikeTables const& other) {
        return sameLayouts(one.layouts(), other.layouts());
    });
}

}  // namespace

bool sameLayouts(std::vector<RowLayout> const& left, std::vector<RowLayout> const& right) {
    return std::ranges::equal(left, right, [](RowLayout const& one, RowLayout const& other) {
        return one.name == other.name && one.words == other.words && one.fields == other.fields &&
               one.firstRow == other.firstRow && one.lastRow == other.lastRow;
    });
}

std::vector<HwTableShape> hwTableShapes(TableSpec const& spec, ProfilePtr const& profile) {
    auto const collection = Belmo::make<NerioSwitchApi::HwTableCollection>();
    auto const descriptors = Belmo::make<NerioSwitchApi::HwTableDescriptorConfig>(
        Belmo::make<PathBus>(), NerioSwitchApi::memoryShadowStore(), collection);
    auto const made = makeTable(spec);
    auto& table = *made->table();
    table.profileIs(profile);
    table.tableStateIs(NerioSwitchApi::TableState::reset);
    table.doSetProfileConvertor(Belmo::make<NerioSwitchApi::SwTableTypes>(descriptors, collection));
    table.doCreateHwTable();
    std::vector<HwTableShape> shapes;
    auto const& convertor = table.profileConvertorPtr();
    if (!convertor) return shapes;
    for (auto const& [id, descriptor] : convertor->descriptors())
        shapes.push_back(shapeOf(*convertor, *descriptor));
    return shapes;
}

std::vector<NamedProfile> presetProfiles() {
    std::vector<NamedProfile> all;
    for (auto const* name :
         {"default", "api2", "api3", "api4", "api5", "api6", "api7", "api8", "api9", "api10"})
        all.push_back({name, NerioSwitch::profilePreset(name)});
    return all;
}

std::vector<TableVersion> tableVersions(Family const& family, std::vector<NamedProfile> const& profiles) {
    std::vector<TableVersion> versions;
    for (auto const& [name, profile] : profiles) {
        auto groups = grouped(shapesOf(family, profile));
        if (groups.empty()) continue;
        auto const found = std::ranges::find_if(
            versions, [&](TableVersion const& version) { return sameGroups(version.groups, groups); });
        if (found != versions.end()) {
            found->profiles.push_back(name);
        } else {
            versions.push_back({{name}, std::move(groups)});
        }
    }
    return versions;
}

}  // namespace Agent
