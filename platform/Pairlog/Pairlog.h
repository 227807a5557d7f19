#pragma once

#include <fmt/format.h>
#include <string_view>

#include "Rillog/Rillog.h"
#include "Sorn/Trace.h"

namespace Pairlog {

/** Whether the handle or the ring takes records of that level. */
inline bool enabled(Sorn::TraceHandle const& handle, int level) {
    return handle.enabled(level) || Rillog::ring().enabled(level);
}

/** Hands a line to those of the two that take its level. */
inline void emit(Sorn::TraceHandle const& handle, int level, std::string_view line) {
    if (handle.enabled(level)) handle.emit(level, line);
    if (Rillog::ring().enabled(level)) Rillog::ring().add(handle.name(), level, line);
}

}  // namespace Pairlog

/** Traces on a handle and into the ring at once; formats once, and only if one of the two wants it. */
#define PAIRLOG(handle, traceLevel, ...)                                   \
    do {                                                                   \
        if (::Pairlog::enabled(handle, traceLevel))                        \
            ::Pairlog::emit(handle, traceLevel, fmt::format(__VA_ARGS__)); \
    } while (false)
