#pragma once

#include <map>
#include <string>
#include <vector>

#include "nerio/LayoutReport.h"

namespace Nerio {

/** A page of documentation for each family, in Markdown, by the name of its file, and an index of them. */
std::map<std::string, std::string> tablePages(std::vector<FamilyLayouts> const& all);

}  // namespace Nerio
