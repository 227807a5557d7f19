#pragma once

#include <cstddef>
#include <cstdio>
#include <fmt/format.h>
#include <unistd.h>

#include "nerio/Interrupt.h"

namespace Nerio {

/** A bar on standard error that shows how far a job is; it is there on a terminal only. */
class ProgressBar {
public:
    explicit ProgressBar(std::size_t total) : total_(isatty(STDERR_FILENO) != 0 ? total : 0) {}
    ~ProgressBar() {
        if (total_ == 0) return;
        fmt::print(stderr, "\r{:{}}\r", "", width + 7);
        onInterruptPrint({});
    }
    ProgressBar(ProgressBar const&) = delete;
    ProgressBar& operator=(ProgressBar const&) = delete;

    void doneIs(std::size_t done) {
        if (total_ == 0 || done * 100 / total_ == percent_) return;
        if (percent_ == 0) onInterruptPrint("\n");
        percent_ = done * 100 / total_;
        auto const filled = percent_ * width / 100;
        fmt::print(stderr, "\r[{:#<{}}{:{}}] {:3} %", "", filled, "", width - filled, percent_);
        std::fflush(stderr);
    }

private:
    static constexpr std::size_t width = 50;

    /** 0 where nobody watches. */
    std::size_t total_;
    std::size_t percent_ = 0;
};

}  // namespace Nerio
