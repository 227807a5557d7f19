#pragma once

#include <vector>

#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/RowLayout.h"

#include "agent/Families.h"

/* What the hardware tables of a family are like on chips, without a chip: for tools that show layouts. */
namespace Agent {

using NerioSwitchApi::RowLayout;
using ProfilePtr = Belmo::Ptr<NerioSwitch::ProfileInfo const>;

/** A hardware table. */
struct HwTableShape {
    /** Which table of the family it belongs to, such as "physTableIdx 2", where these have other rows. */
    Belmo::String label;
    NerioSwitchApi::HwTableId id = 0;
    NerioSwitchApi::HwIndex firstRow = 0;
    NerioSwitchApi::HwIndex lastRow = 0;
    /** The paths of the registers that the first row is written through, a word each. */
    std::vector<Belmo::String> registers;
    /** All rows go through the registers of the first one. */
    bool rowsShareRegisters = false;
    /** Rows of each way of a hash table, whose ways stand behind each other; 0 for any other table. */
    U32 rowsOfWay = 0;
    std::vector<RowLayout> layouts;
};

/** The same layouts, but for what tells forms apart, which cannot be compared. */
bool sameLayouts(std::vector<RowLayout> const& left, std::vector<RowLayout> const& right);

/**
 * The hardware tables that a table has on the chip of a profile. A profile that no such table can be made for
 * ends the process by an assertion, as a start would.
 */
std::vector<HwTableShape> hwTableShapes(TableSpec const& spec, ProfilePtr const& profile);

/** Hardware tables of one chip whose rows have the same layouts. */
struct AlikeTables {
    std::vector<HwTableShape> tables;

    std::vector<RowLayout> const& layouts() const { return tables.front().layouts; }
};

/** What a family's hardware tables are like on the chips of these profiles. */
struct TableVersion {
    std::vector<Belmo::String> profiles;
    std::vector<AlikeTables> groups;
};

/** A profile by the name that people are told. */
struct NamedProfile {
    Belmo::String name;
    ProfilePtr profile;
};
/** The presets of all generations, "default" first. */
std::vector<NamedProfile> presetProfiles();

/**
 * The versions of a family's tables on chips, with 0 for numbers that do not change rows: profiles whose
 * layouts are the same share one, whose tables are those of the first of them. None for a family without
 * hardware.
 */
std::vector<TableVersion> tableVersions(Family const& family, std::vector<NamedProfile> const& profiles);

}  // namespace Agent
