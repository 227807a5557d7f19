#pragma once

#include <boost/interprocess/mapped_region.hpp>
#include <cstddef>
#include <memory>

#include "Belmo/Types.h"
#include "NerioSwitchApi/FileDescriptor.h"

namespace NerioSwitchApi {

/**
 * Maps `size` bytes of an open file, from `offset` on, for reading and writing, shared with all others that
 * map it; null for no bytes. Throws `Belmo::ResourceException` with the path, which is there for that alone.
 */
std::unique_ptr<boost::interprocess::mapped_region> mappedRegion(int descriptor, Belmo::String const& path,
                                                                 U64 offset, std::size_t size);

}  // namespace NerioSwitchApi
