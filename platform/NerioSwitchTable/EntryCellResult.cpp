#include "NerioSwitchTable/EntryCellResult.h"

#include "Sorn/Format.h"

namespace NerioSwitchTable {

void EntryCellResult::refuse(char const* text) {
    throw Belmo::RangeException(text);
}

Belmo::String EntryCellResult::resultString() const {
    return Sorn::_fmt("nexthopIndexes: %u  maskLengths: %u %u  realPrefixLen: %u", nexthopIndexes_.value(),
                      maskLength0_.value(), maskLength1_.value(), realPrefixLen_);
}

}  // namespace NerioSwitchTable
