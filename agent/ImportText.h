#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Lanvo/Address.h"

#include "agent/FilterSet.h"

/* Small words of imported texts. Each is nothing for a text that is none. */
namespace Agent {

/** A decimal number of at most `most`, digits alone. */
std::optional<U32> numberFromText(std::string_view text, U32 most);
std::optional<Lanvo::IpAddr> addressFromText(std::string_view text);
/** "10.0.0.0/8", "10.0.0.0/255.0.0.0" or "10.0.0.1"; bits beyond the length are left out. */
std::optional<Lanvo::Prefix> prefixFromText(std::string_view text);
/** "80", or two ends with that mark between them: "1024:2047"; an end left out is the first or last port. */
std::optional<PortRange> portRangeFromText(std::string_view text, char mark);

/** The parts between marks, without blanks around them; of an empty text none. */
std::vector<Belmo::String> splitText(std::string_view text, char mark);

/** Order of names in which numbers count as such: "port9" before "port10". */
bool naturalLess(std::string_view a, std::string_view b);

}  // namespace Agent
