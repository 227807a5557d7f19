#include "NerioSwitchTable/NerioTableRateLimiter.h"

namespace NerioSwitchTable {

RateLimiterRegisterMapping::~RateLimiterRegisterMapping() = default;

}  // namespace NerioSwitchTable
