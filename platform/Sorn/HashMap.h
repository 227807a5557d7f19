#pragma once

#include <functional>
#include <tsl/robin_map.h>

#include "Sorn/Hash.h"

namespace Sorn {

/** The one hash map of the system: open addressing with Robin Hood displacement. */
template <class Key, class Value>
using HashMap = tsl::robin_map<Key, Value, Hasher<Key>>;

}  // namespace Sorn
