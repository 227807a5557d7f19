#include "Sorn/Trace.h"

#include <algorithm>
#include <memory>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <utility>

namespace Sorn {

namespace {

std::vector<TraceHandle*>& handles() {
    static std::vector<TraceHandle*> all;
    return all;
}

TraceSink& sinkInUse() {
    static TraceSink sink;
    return sink;
}

void toStandardError(TraceRecord const& record) {
    static auto const logger = [] {
        auto made =
            std::make_shared<spdlog::logger>("trace", std::make_shared<spdlog::sinks::stderr_sink_mt>());
        made->set_pattern("%H:%M:%S.%f %v");
        return made;
    }();
    logger->info("{} {}: {}", record.handle, record.level, record.text);
}

}  // namespace

TraceHandle::TraceHandle(char const* name) : name_(name) {
    handles().push_back(this);
}

TraceHandle::~TraceHandle() {
    std::erase(handles(), this);
}

void TraceHandle::emit(int level, std::string_view text) const {
    TraceRecord const record{name_, level, text};
    if (auto const& sink = sinkInUse()) {
        sink(record);
    } else {
        toStandardError(record);
    }
}

std::vector<TraceHandle*> const& traceHandles() {
    return handles();
}

int traceLevelIs(std::string_view name, int level) {
    bool const isPrefix = name.ends_with('*');
    if (isPrefix) name.remove_suffix(1);
    int matched = 0;
    for (auto* handle : handles()) {
        if (isPrefix ? handle->name().starts_with(name) : handle->name() == name) {
            handle->levelIs(level);
            ++matched;
        }
    }
    return matched;
}

TraceSink traceSinkIs(TraceSink sink) {
    return std::exchange(sinkInUse(), std::move(sink));
}

}  // namespace Sorn
