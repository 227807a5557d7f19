#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of the families of layer 2: VLANs, flood sets, addresses, and controls per port. */
std::vector<FamilyCase> layer2FamilyCases();

}  // namespace NerioTest
