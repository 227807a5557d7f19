#include "NerioSwitchTable/DirectTable.h"

#include <algorithm>
#include <utility>

#include "Belmo/Assert.h"

namespace NerioSwitchTable {

using NerioSwitchApi::HwEntryConfig;

DirectBaseEntry::~DirectBaseEntry() = default;
DirectBaseTable::~DirectBaseTable() = default;
DirectBaseConvertor::~DirectBaseConvertor() = default;

Belmo::String strepOf(Belmo::Ptr<DirectBaseEntry const> const& item) {
    return item ? item->toStrep() : "NULL";
}

void DirectBaseTable::doInitDirectTable() {}

DirectBaseConvertor* DirectBaseTable::directConvertor() const {
    return static_cast<DirectBaseConvertor*>(profileConvertorPtr().get());
}

void DirectBaseTable::doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& types) {
    auto const convertor = profileConvertorFactory();
    convertor->typesAre(*types);
    convertor->profileIs(profile());
    convertor->swTableIs(*this);
    profileConvertorPtrIs(convertor);
}

void DirectBaseTable::doCreateHwTable() {
    SwTable::doCreateHwTable();
    doInitDirectTable();
}

void DirectBaseTable::handleDirectEntry(PtrConst const& item, U32 /*entries*/) const {
    // Rows are counted by what they hold, since tables may divide them among several counters.
    if (auto* const convertor = directConvertor()) convertor->handleDirectEntry(item);
}

DirectBaseConvertor::DirectBaseConvertor(DirectRowForm form) : form_(std::move(form)) {
    strobeBitsAre(form_.readStrobeBit, form_.writeStrobeBit);
    DirectBaseConvertor::handleInitialized();
}

void DirectBaseConvertor::handleInitialized() {
    for (auto const& word : form_.staticWords)
        hwStaticWordIs(word.position, word.mask);
}

NerioSwitchApi::CapacityTableIndex DirectBaseConvertor::capacityIndexFromEntry(PtrConst const&) const {
    return 0;
}

Belmo::String DirectBaseConvertor::createDirectTable(
    HwTableId id, NerioSwitchApi::TableState state, Belmo::String const& tableName, HwIndex lastIndex,
    Belmo::Ptr<NerioSwitchApi::HwAddressColl const> const& registers) {
    auto name =
        NerioSwitchApi::SwTable::hwTableName(swTable().name(), profile()->profileName(), tableName, id);
    createDirectTable(id, state, lastIndex,
                      Belmo::make<NerioSwitchApi::HwTableRegisterMappingConst>(name, registers));
    return name;
}

void DirectBaseConvertor::createDirectTable(
    HwTableId id, NerioSwitchApi::TableState state, HwIndex lastIndex,
    Belmo::Ptr<NerioSwitchApi::HwTableRegisterMapping> const& mapping) {
    createHwTable(id, state, 0, lastIndex, mapping);
    counted_.resize(std::size_t{lastIndex} + 1);
}

void DirectBaseConvertor::checkItem(PtrConst const& item) const {
    descriptor(0)->checkRow(hwIndexFromItem(item));
}

void DirectBaseConvertor::handleDirectEntry(PtrConst const& item) {
    if (!item->valid() && !descriptor(0)->hasRow(hwIndexFromItem(item))) return;
    checkItem(item);
    write(item, false);
}

void DirectBaseConvertor::initHwEntries(bool resetHw, U32 /*id*/) {
    for (HwIndex index = descriptor(0)->firstIndex(); descriptor(0)->hasRow(index); ++index) {
        auto const item = wantedItem(index);
        if (item->valid()) {
            write(item, false);
        } else if (resetHw || !heldAlike(index)) {
            write(item, resetHw);
        }
    }
}

void DirectBaseConvertor::syncEntries(U32 /*id*/) {
    for (HwIndex index = descriptor(0)->firstIndex(); descriptor(0)->hasRow(index); ++index) {
        auto const item = decodeHwEntry(index);
        if (item->valid()) swTable().entryIsByDirectItem(item);
    }
}

std::optional<HwEntryConfig> DirectBaseConvertor::wantedEntry(HwTableId /*id*/, HwIndex index) const {
    auto const words = wordsOf(wantedItem(index));
    return HwEntryConfig(index, words, dataWords());
}

DirectBaseConvertor::RowWords DirectBaseConvertor::storedWords(HwIndex index) const {
    RowWords words{};
    if (auto const* stored = hwTable(0)->storedWords(index)) std::copy_n(stored, words.size(), words.begin());
    return words;
}

bool DirectBaseConvertor::copiesDiffer(HwIndex index, RowWords const& first) const {
    return std::any_of(hwTables().begin(), hwTables().end(), [&](auto const& member) {
        static constexpr RowWords none{};
        auto const* stored = member.second->storedWords(index);
        return !std::equal(first.begin(), first.begin() + dataWords(),
                           stored == nullptr ? none.data() : stored);
    });
}

DirectBaseConvertor::Ptr DirectBaseConvertor::wantedItem(HwIndex index) const {
    auto item = nullDirectEntry(index);
    BELMO_ASSERT(item);
    item->validIs(swTable().entryHasByDirectItem(item));
    if (item->valid()) swTable().updateDirectItem(item);
    return item;
}

DirectBaseConvertor::RowWords DirectBaseConvertor::wordsOf(PtrConst const& item) const {
    RowWords words{};
    auto const laidOut = item->valid() ? item : PtrConst(nullDirectEntry(hwIndexFromItem(item)));
    setHwBuffer(laidOut, reinterpret_cast<U8*>(words.data()));
    return words;
}

/** Whether every copy's shadow holds the row, with the content of the first. */
bool DirectBaseConvertor::heldAlike(HwIndex index) const {
    auto const first = storedWords(index);
    return std::none_of(hwTables().begin(), hwTables().end(), [&](auto const& member) {
        return differs(*member.second, index, first.data(), dataWords());
    });
}

void DirectBaseConvertor::write(PtrConst const& item, bool always) {
    HwIndex const index = hwIndexFromItem(item);
    auto const words = wordsOf(item);
    HwEntryConfig const entry(index, words, dataWords());
    for (auto const& [id, table] : hwTables()) {
        if (always || differs(*table, index, words.data(), dataWords())) table->entryIs(entry);
    }
    count(index, item);
}

void DirectBaseConvertor::count(HwIndex index, PtrConst const& item) {
    if (counted_[index] == item->valid()) return;
    counted_[index] = item->valid();
    auto const counter = entryCounter(capacityIndexFromEntry(item));
    if (counter) counter->usedIs(item->valid() ? counter->used() + 1 : counter->used() - 1);
}

}  // namespace NerioSwitchTable
