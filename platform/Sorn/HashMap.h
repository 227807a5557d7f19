#pragma once

#include <memory>
#include <tsl/robin_map.h>
#include <tsl/robin_set.h>

#include "Sorn/Hash.h"

namespace Sorn {

/** The one hash map of the system: open addressing with Robin Hood displacement. */
template <class Key, class Value>
using HashMap = tsl::robin_map<Key, Value, Hasher<Key>>;

/** Its set, of values with a hash and an equality of their own; it keeps the hashes. */
template <class Value, class Hash, class Equal>
using HashSet = tsl::robin_set<Value, Hash, Equal, std::allocator<Value>, true>;

}  // namespace Sorn
