#pragma once

#include <vector>

#include "FamilyCases.h"

namespace NerioTest {

/**
 * Every family's cases on the chip of a profile: a table for each pipeline, or pair of pipelines, that a
 * family takes, with keys and results that rows of this generation can hold, and with what these tell at a
 * restart. Families that the generation does not have are left out.
 */
std::vector<FamilyCase> casesOfProfile(NerioSwitch::ProfileInfo const& profile);

}  // namespace NerioTest
