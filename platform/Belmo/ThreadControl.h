#pragma once

#include <atomic>

#include "Belmo/Export.h"

namespace Belmo {

/**
 * Says whether several threads of this process touch counted references. An agent has one thread, so
 * counting is plain by default; a process that starts threads raises the flag before it starts the first.
 */
class BELMO_EXPORT ThreadControl {
public:
    static bool threadsInUse() noexcept { return threadsInUse_.load(std::memory_order_relaxed); }
    static void threadsInUseIs(bool inUse) noexcept { threadsInUse_.store(inUse, std::memory_order_seq_cst); }

private:
    static std::atomic<bool> threadsInUse_;
};

}  // namespace Belmo
