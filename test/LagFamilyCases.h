#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of the families of link aggregation. */
std::vector<FamilyCase> lagFamilyCases();

}  // namespace NerioTest
