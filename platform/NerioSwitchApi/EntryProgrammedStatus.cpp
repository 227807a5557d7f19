#include "NerioSwitchApi/EntryProgrammedStatus.h"

#include <ostream>

#include "Sorn/Text.h"

namespace NerioSwitchApi {

std::ostream& operator<<(std::ostream& stream, EntryProgrammedStatus status) {
    return stream << Sorn::text(status);
}

EntryProgrammedStatus sequenceToValue(Sorn::CharRange& range) {
    return Sorn::parse<EntryProgrammedStatus>(range);
}

}  // namespace NerioSwitchApi
