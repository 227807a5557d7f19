#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of the families of address translation. */
std::vector<FamilyCase> natFamilyCases();

}  // namespace NerioTest
