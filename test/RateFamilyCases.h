#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of the tables of rate limiters. */
std::vector<FamilyCase> rateFamilyCases();

}  // namespace NerioTest
