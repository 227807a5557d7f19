#pragma once

#include <iosfwd>

#include "Belmo/Export.h"
#include "Belmo/Types.h"
#include "Sorn/CharRange.h"
#include "Sorn/Enum.h"

namespace NerioSwitchApi {

/** What became of an entry whose table may lack a place for it. */
SORN_ENUM(EntryProgrammedStatus, U8, (entryProgrammed, 0), (entryProgrammingFailed, 1));

/** The name of the status, or its number if it has none. */
BELMO_EXPORT std::ostream& operator<<(std::ostream& stream, EntryProgrammedStatus status);
/** Takes a status from the front of a text; throws `Belmo::DeserializationException`. */
BELMO_EXPORT EntryProgrammedStatus sequenceToValue(Sorn::CharRange& range);

}  // namespace NerioSwitchApi
