#pragma once

#include <cstddef>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

#include "Belmo/Types.h"

/** One page between two pages that nobody may touch: an access beyond either end ends the process. */
class FencedMemory {
public:
    FencedMemory() : pages_(mmap(nullptr, 3 * pageSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        if (pages_ == MAP_FAILED || mprotect(begin(), pageSize, PROT_READ | PROT_WRITE) != 0) {
            throw std::bad_alloc();
        }
    }
    ~FencedMemory() { munmap(pages_, 3 * pageSize); }
    FencedMemory(FencedMemory const&) = delete;
    FencedMemory& operator=(FencedMemory const&) = delete;

    /** The first byte behind the lower fence. */
    U8* begin() const { return static_cast<U8*>(pages_) + pageSize; }
    /** The last `size` bytes before the upper fence. */
    U8* last(std::size_t size) const { return begin() + pageSize - size; }

private:
    std::size_t const pageSize = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void* pages_;
};
