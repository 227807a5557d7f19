#pragma once

#include <cstddef>

/** Calls of the global operator new by this process so far. */
std::size_t allocationCount();
