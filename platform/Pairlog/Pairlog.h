#pragma once

#include "Rillog/Rillog.h"
#include "Sorn/Trace.h"

/** Traces on a handle and into the ring at once; formats once, and only if one of the two wants it. */
#define PAIRLOG(handle, traceLevel, ...)                                         \
    do {                                                                         \
        bool const toHandle = (handle).enabled(traceLevel);                      \
        bool const toRing = ::Rillog::ring().enabled(traceLevel);                \
        if (toHandle || toRing) {                                                \
            auto const line = fmt::format(__VA_ARGS__);                          \
            if (toHandle) (handle).emit(traceLevel, line);                       \
            if (toRing) ::Rillog::ring().add((handle).name(), traceLevel, line); \
        }                                                                        \
    } while (false)
