#pragma once

#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "NerioSwitchApi/HashTable.h"
#include "NerioSwitchApi/RegisterBus.h"
#include "NerioSwitchApi/SwTable.h"

#include "agent/JsonTable.h"

namespace Nerio {

/**
 * Watches how tables fill up while they are programmed: every so many register writes it notes the rows that
 * each has in use. There are some hundred samples, however long it takes: when there are too many, every
 * other one goes, and the next ones are twice as far apart. Tables are looked at as long as it lives.
 */
class FillSampler {
public:
    /** Register writes so far, and rows in use then. */
    using Points = std::vector<std::pair<U64, U64>>;

    /** How one table filled up. */
    struct Series {
        std::string name;
        /** Rows, or keys where each key has rows of its own. */
        U64 rows = 0;
        bool isHash = false;
        NerioSwitchApi::MoveHistogram moves{};
        Points points;
    };

    /** A table is about to be started. Tables in the rows of one that is known are counted there; those that
     * are not hashed are told of by their entries, as long as it is known how many there can be. */
    void tableIs(Belmo::Ptr<NerioSwitchApi::SwTable> const& table);
    void tableIs(std::string name, Agent::JsonTable const& table);
    /** So many registers have been written. */
    void written(U64 count);
    U64 writes() const { return writes_; }
    /** What was seen, the last state of all tables with it. */
    std::vector<Series> series() const;

private:
    struct Source {
        Belmo::Ptr<NerioSwitchApi::SwTable> table;
        std::string name;
        std::function<U64()> entries;
        /** The number of the sample with which it came. */
        std::size_t firstSample = 0;
        std::vector<U64> used{};
    };

    Source& sourceOf(Belmo::Ptr<NerioSwitchApi::SwTable> const& table);
    void sample();
    void thinOut();

    static constexpr std::size_t mostSamples = 400;

    std::vector<Source> sources_;
    std::vector<U64> samples_;
    U64 writes_ = 0;
    U64 step_ = 64;
    U64 next_ = 0;
};

/** A bus around another that tells a sampler of each write. */
class SampledBus final : public NerioSwitchApi::RegisterBus {
public:
    SampledBus(Belmo::Ptr<NerioSwitchApi::RegisterBus> bus, FillSampler& sampler)
        : bus_(std::move(bus)), sampler_(sampler) {}
    ~SampledBus() override;

    NerioSwitchApi::RegisterHandle address(std::string_view path) override { return bus_->address(path); }
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override { return bus_->path(handle); }
    U32 read(NerioSwitchApi::RegisterHandle handle) override { return bus_->read(handle); }
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override;
    void writeRow(std::span<NerioSwitchApi::RegisterHandle const> handles, U32 const* words) override;

private:
    Belmo::Ptr<NerioSwitchApi::RegisterBus> bus_;
    FillSampler& sampler_;
};

}  // namespace Nerio
