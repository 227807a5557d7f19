#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/** The cases of the families of multicast and of flooding. */
std::vector<FamilyCase> multicastFamilyCases();

}  // namespace NerioTest
