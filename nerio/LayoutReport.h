#pragma once

#include <string>
#include <vector>

#include "agent/Families.h"
#include "agent/TableShapes.h"

/* Layouts of families' rows, for people: as text, as JSON, as pictures and as pages. */
namespace Nerio {

/** A family, or a table of it, and what its hardware tables are like on some chips. */
struct FamilyLayouts {
    /** As people call it: the family's name, or the table's. */
    std::string name;
    Agent::Family const* family = nullptr;
    std::vector<Agent::TableVersion> versions;
};

/** The layouts of a family whose factory takes 0 for every number. */
FamilyLayouts layoutsOf(Agent::Family const& family, std::vector<Agent::NamedProfile> const& profiles);

/** "default, api2 to api6 and api10" */
std::string presetsText(std::vector<Belmo::String> const& names);
/** "hardware tables 0 to 2, rows 0 to 4095" */
std::string tablesText(Agent::AlikeTables const& group);
/** What stands beside each word of a group's rows: the register, or that it stays in the shadow. */
std::vector<std::string> wordNotes(Agent::AlikeTables const& group, NerioSwitchApi::RowLayout const& layout);

/** Where the fields of one form stand in each version: a line for each field. */
struct FieldMatrix {
    std::string title;
    /** Heads of columns: "field", and what each version is called. */
    std::vector<std::string> heads;
    std::vector<std::vector<std::string>> lines;
};
std::vector<FieldMatrix> fieldMatrices(std::vector<Agent::TableVersion> const& versions);

std::string layoutText(FamilyLayouts const& layouts);
Agent::Json layoutJson(FamilyLayouts const& layouts);
/** One SVG file of all pictures. */
std::string layoutSvg(std::vector<FamilyLayouts> const& all);
/** The part of a page that shows a family, its versions side by side. */
std::string layoutSection(FamilyLayouts const& layouts);
/** The pictures of a family's rows alone, of each version. */
std::string layoutPictures(FamilyLayouts const& layouts);
/** A page of these families. */
std::string layoutPage(std::vector<FamilyLayouts> const& all);

}  // namespace Nerio
