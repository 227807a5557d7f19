#pragma once

#include <atomic>
#include <fmt/format.h>
#include <functional>
#include <string_view>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace Sorn {

/** One line of trace. */
struct TraceRecord {
    std::string_view handle;
    int level;
    std::string_view text;
};

using TraceSink = std::function<void(TraceRecord const&)>;

/**
 * The trace of one source unit, by the unit's name. A handle passes records of levels up to its own;
 * level 0 is off, which is how every handle starts. Levels in use: 3 sizes, 6 what is programmed, 7 what is
 * decoded, 8 calls, 9 row walks. A disabled record costs one comparison and formats nothing. Threads may
 * share a handle; the sink and the set of handles are settled before the first of them starts.
 */
class BELMO_EXPORT TraceHandle {
public:
    explicit TraceHandle(char const* name);
    ~TraceHandle();
    TraceHandle(TraceHandle const&) = delete;
    TraceHandle& operator=(TraceHandle const&) = delete;

    std::string_view name() const { return name_; }
    int level() const { return level_.load(std::memory_order_relaxed); }
    void levelIs(int level) { level_.store(level, std::memory_order_relaxed); }
    bool enabled(int level) const { return level <= this->level(); }
    /** Passes a record on, whatever its level. */
    void emit(int level, std::string_view text) const;

private:
    char const* name_;
    std::atomic<int> level_{0};
};

/** All handles of the process, for tools that set levels by name. */
BELMO_EXPORT std::vector<TraceHandle*> const& traceHandles();
/** Sets the level of each handle whose name is `name`, or begins with it where it ends in "*"; their number.
 */
BELMO_EXPORT int traceLevelIs(std::string_view name, int level);
/** Where records go; without a sink they go to standard error. Returns the sink that was there. */
BELMO_EXPORT TraceSink traceSinkIs(TraceSink sink);

}  // namespace Sorn

/** Traces a fmt-formatted line on a handle, if the handle passes that level. */
#define SORN_TRACE(handle, traceLevel, ...)                                                    \
    do {                                                                                       \
        if ((handle).enabled(traceLevel)) (handle).emit(traceLevel, fmt::format(__VA_ARGS__)); \
    } while (false)
