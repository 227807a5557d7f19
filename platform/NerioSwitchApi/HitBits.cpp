#include "NerioSwitchApi/HitBits.h"

#include <algorithm>
#include <array>
#include <exception>

#include "Belmo/Assert.h"
#include "NerioSwitchApi/SwTable.h"

namespace NerioSwitchApi {

namespace {

/** A read, with the tables that take part in it. */
struct SharedRead {
    HitBitTableConfig::Read const* read;
    std::vector<std::pair<HitBitTableConfig*, HitBitTableConfig::Read const*>> members;
    U32 lastRead = 0;
    bool hasBits = false;
};

/** A bit that was found set. The reference keeps the table while others are told of theirs. */
struct Hit {
    Belmo::Ptr<HitBitTableConfig> table;
    HwIndex index;
};

std::vector<SharedRead> sharedReads(std::span<Belmo::Ptr<HitBitTableConfig> const> tables) {
    std::vector<SharedRead> all;
    for (auto const& table : tables) {
        for (auto const& read : table->reads()) {
            auto shared = std::find_if(all.begin(), all.end(),
                                       [&](auto const& known) { return known.read->sameReadAs(read); });
            if (shared == all.end()) shared = all.insert(all.end(), SharedRead{&read, {}});
            shared->members.emplace_back(table.get(), &read);
            for (auto const& [bit, registration] : read.bits) {
                shared->lastRead = std::max(shared->lastRead, registration.lastRead());
                shared->hasBits = true;
            }
        }
    }
    return all;
}

bool isSet(std::span<U32 const> words, U8 bit) {
    return (words[bit / 32] >> (bit % 32) & 1) != 0;
}

void collect(SharedRead const& shared, U32 number, std::span<U32 const> words, std::vector<Hit>& hits) {
    for (auto const& [table, read] : shared.members) {
        for (auto const& [bit, registration] : read->bits) {
            if (registration.hasRead(number) && isSet(words, bit))
                hits.push_back({table, registration.indexOf(number)});
        }
    }
}

void readAll(RegisterBus& bus, SharedRead const& shared, std::vector<Hit>& hits) {
    if (!shared.hasBits) return;
    std::array<U32, maxEntryWords> words{};
    auto const& data = shared.read->data;
    for (U32 number = 0; number <= shared.lastRead; ++number) {
        bus.write(shared.read->trigger, shared.read->value + number);
        for (std::size_t i = 0; i < data.size(); ++i)
            words[i] = data[i].exists() ? bus.read(data[i]) : 0;
        if (std::any_of(words.begin(), words.end(), [](U32 word) { return word != 0; }))
            collect(shared, number, words, hits);
    }
}

}  // namespace

HitBitReadInfo::~HitBitReadInfo() = default;
HitBitReadInfoWrapper::~HitBitReadInfoWrapper() = default;
HitBitTableConfig::~HitBitTableConfig() = default;
HitBitTableDescriptor::~HitBitTableDescriptor() = default;
HitBitTable::~HitBitTable() = default;

Belmo::Ptr<HitBitReadInfo> HitBitReadInfoWrapper::readInfoIs(HitBitTrigger const& trigger,
                                                             Belmo::Ptr<HwAddressColl const> const& data) {
    return readInfos_.emplace_back(Belmo::make<HitBitReadInfo>(trigger, data));
}

HitBitTableConfig::HitBitTableConfig(Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo, HwIndex firstIndex,
                                     HwIndex lastIndex, RegisterBus& bus)
    : firstIndex_(firstIndex),
      times_(lastIndex >= firstIndex ? std::size_t{lastIndex} - firstIndex + 1 : 0,
             Belmo::Duration::never()) {
    for (auto const& info : readInfo->readInfos()) {
        auto& read =
            reads_.emplace_back(Read{bus.address(info->trigger().path), info->trigger().value, {}, {}});
        for (U8 i = 0; i < info->data().size(); ++i) {
            auto const& path = info->data().address(i);
            read.data.push_back(path.empty() ? RegisterHandle{} : bus.address(path));
        }
        for (auto const& [bit, registration] : info->bitRegistrations()) {
            BELMO_ASSERT(bit < 32 * read.data.size());
            read.bits.emplace_back(bit, registration);
        }
    }
}

std::optional<HitBitEntry> HitBitTableConfig::entry(HwIndex index) const {
    if (index < firstIndex_ || index - firstIndex_ >= times_.size()) return std::nullopt;
    auto const time = times_[index - firstIndex_];
    if (time.isNever()) return std::nullopt;
    return HitBitEntry().hwIndexIs(index).timeIs(time);
}

void HitBitTableConfig::hitIs(HwIndex index, Belmo::Duration time) {
    if (convertor_ == nullptr || index < firstIndex_ || index - firstIndex_ >= times_.size()) return;
    times_[index - firstIndex_] = time;
    convertor_->handleHitBitEntry(id_, index);
}

U32 pollHitBits(RegisterBus& bus, std::span<Belmo::Ptr<HitBitTableConfig> const> tables,
                Belmo::Duration now) {
    std::vector<Hit> hits;
    std::exception_ptr failure;
    try {
        for (auto const& shared : sharedReads(tables))
            readAll(bus, shared, hits);
    } catch (...) {
        failure = std::current_exception();
    }
    for (auto const& hit : hits)
        hit.table->hitIs(hit.index, now);
    if (failure) std::rethrow_exception(failure);
    return static_cast<U32>(hits.size());
}

}  // namespace NerioSwitchApi
