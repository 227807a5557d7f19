#pragma once

#include <vector>

#include "NerioSwitchApi/RegisterBus.h"

namespace Agent {

/** The bus to a chip that has every register, and nothing behind them: what is written is gone. */
class PathBus final : public NerioSwitchApi::RegisterBus {
public:
    NerioSwitchApi::RegisterHandle address(std::string_view path) override {
        paths_.emplace_back(path);
        return {static_cast<U32>(paths_.size() - 1)};
    }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override {
        return paths_.at(handle.number);
    }
    U32 read(NerioSwitchApi::RegisterHandle /*handle*/) override { return 0; }
    void write(NerioSwitchApi::RegisterHandle /*handle*/, U32 /*word*/) override {}

private:
    std::vector<Belmo::String> paths_;
};

}  // namespace Agent
