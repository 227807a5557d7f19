#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of port ranges, protocol numbers and mirrors. */
std::vector<FamilyCase> aclPlainFamilyCases();

}  // namespace NerioTest
