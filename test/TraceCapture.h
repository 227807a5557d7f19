#pragma once

#include <string>
#include <utility>
#include <vector>

#include "Sorn/Trace.h"

namespace NerioTest {

/** Collects what a trace handle emits up to a level, as long as this object lives. */
class TraceCapture {
public:
    TraceCapture(std::string_view handle, int level) : handle_(handle) {
        Sorn::traceLevelIs(handle_, level);
        previous_ = Sorn::traceSinkIs([this](Sorn::TraceRecord const& record) {
            if (record.handle == handle_) lines_.emplace_back(record.text);
        });
    }
    ~TraceCapture() {
        Sorn::traceSinkIs(std::move(previous_));
        Sorn::traceLevelIs(handle_, 0);
    }
    TraceCapture(TraceCapture const&) = delete;
    TraceCapture& operator=(TraceCapture const&) = delete;

    std::vector<std::string> const& lines() const { return lines_; }

private:
    std::string handle_;
    std::vector<std::string> lines_;
    Sorn::TraceSink previous_;
};

}  // namespace NerioTest
