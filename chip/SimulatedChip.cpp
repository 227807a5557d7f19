#include "chip/SimulatedChip.h"

#include <algorithm>
#include <boost/crc.hpp>
#include <cstddef>
#include <filesystem>
#include <fmt/format.h>
#include <map>

#include "Belmo/Assert.h"

#include "chip/MemoryMap.h"

namespace Chip {

using NerioSwitchApi::RegisterHandle;

namespace {

constexpr NerioSwitchApi::FileFormat memoryFormat{"NERIOCH\x1a", 1, "chip memory", "registers or memories"};

std::size_t wordsOf(MemoryDescription const& memory) {
    return std::size_t{memory.rows()} * memory.wordsPerRow();
}

/** What tells one chip's memory from another's: what its words stand for. */
Belmo::String description(RegisterMap const& registers, std::vector<MemoryDescription> const& memories) {
    boost::crc_32_type map;
    auto const add = [&](Belmo::String const& line) { map.process_bytes(line.c_str(), line.size() + 1); };
    std::ranges::for_each(registers.paths(), add);
    for (auto const& memory : memories)
        add(memory.text());
    return fmt::format("{} registers and {} memories of map {:08x}", registers.size(), memories.size(),
                       map.checksum());
}

}  // namespace

SimulatedChip::SimulatedChip(NerioSwitch::ProfileInfo const& profile,
                             std::vector<MemoryDescription> const& memories,
                             std::optional<Belmo::String> const& file)
    : registers_(profile), controlOf_(registers_.size()) {
    std::size_t size = registers_.size();
    for (auto const& memory : memories)
        size += wordsOf(memory);
    if (file) {
        words_ = wordsIn(*file, memories, size);
    } else {
        owned_.resize(size);
        words_ = owned_;
    }
    std::size_t next = registers_.size();
    for (auto const& memory : memories) {
        memoryIs(memory, words_.subspan(next, wordsOf(memory)));
        next += wordsOf(memory);
    }
    controlRegistersAre();
    hitMemoriesAre();
}

SimulatedChip::~SimulatedChip() = default;

std::span<U32> SimulatedChip::wordsIn(Belmo::String const& file,
                                      std::vector<MemoryDescription> const& memories, std::size_t size) {
    using NerioSwitchApi::CheckedFile;
    lock_.emplace(file + ".lock");
    auto const text = description(registers_, memories);
    // A link that leads nowhere is there all the same, and is refused.
    bool const isThere = std::filesystem::exists(std::filesystem::symlink_status(file));
    file_ = isThere ? CheckedFile::open(memoryFormat, file, text, size * sizeof(U32))
                    : CheckedFile::create(memoryFormat, file, text, size * sizeof(U32));
    return {reinterpret_cast<U32*>(file_->contents().data()), size};
}

void SimulatedChip::memoryIs(MemoryDescription const& description, std::span<U32> rows) {
    std::vector<U32*> dataRegisters;
    for (auto const& path : description.dataRegisters)
        dataRegisters.push_back(&words_[registers_.address(path).number]);
    memories_.emplace_back(description, rows, std::move(dataRegisters));
}

void SimulatedChip::controlRegistersAre() {
    std::map<U32, std::vector<IndirectMemory*>> behind;
    for (auto& memory : memories_)
        behind[registers_.address(memory.description().controlRegister).number].push_back(&memory);
    for (auto const& [number, memories] : behind) {
        controls_.emplace_back(memories);
        controlOf_[number] = static_cast<U32>(controls_.size());
    }
}

void SimulatedChip::hitMemoriesAre() {
    for (auto& memory : memories_) {
        auto const& hits = memory.description().hits;
        if (hits.exist()) memory.hitMemoryIs(indirectMemory(hits.memory));
    }
}

RegisterHandle SimulatedChip::address(std::string_view path) {
    return registers_.address(path);
}

Belmo::String SimulatedChip::path(RegisterHandle handle) const {
    BELMO_ASSERT(handle.number < registers_.size());
    return registers_.paths()[handle.number];
}

U32 SimulatedChip::read(RegisterHandle handle) {
    BELMO_ASSERT(handle.number < registers_.size());
    return words_[handle.number];
}

inline void SimulatedChip::put(RegisterHandle handle, U32 word) {
    BELMO_ASSERT(handle.number < controlOf_.size());
    if (auto const control = controlOf_[handle.number]; control != 0) {
        for (auto* memory : controls_[control - 1].answering(word))
            memory->controlIs(word);
    }
    words_[handle.number] = word;
}

void SimulatedChip::write(RegisterHandle handle, U32 word) {
    put(handle, word);
}

void SimulatedChip::writeRow(std::span<RegisterHandle const> handles, U32 const* words) {
    for (std::size_t i = 0; i < handles.size(); ++i) {
        if (handles[i].exists()) put(handles[i], words[i]);
    }
}

std::size_t SimulatedChip::memoryNumber(std::string_view name) const {
    auto const found = std::find_if(memories_.begin(), memories_.end(),
                                    [&](auto const& memory) { return memory.description().name == name; });
    if (found == memories_.end()) {
        throw Belmo::RangeException(fmt::format("the chip has no memory \"{}\"", name));
    }
    return static_cast<std::size_t>(found - memories_.begin());
}

IndirectMemory* SimulatedChip::memoryOf(RegisterHandle handle, U32 word) const {
    if (!handle.exists() || controlOf_[handle.number] == 0) return nullptr;
    auto const& answering = controls_[controlOf_[handle.number] - 1].answering(word);
    auto const found = std::ranges::find_if(answering, [&](auto* memory) { return memory->stores(word); });
    return found == answering.end() ? nullptr : *found;
}

bool SimulatedChip::idles(RegisterHandle handle, U32 word) const {
    if (!handle.exists() || controlOf_[handle.number] == 0) return false;
    return std::ranges::any_of(controls_[controlOf_[handle.number] - 1].answering(word), [&](auto* memory) {
        return memory->description().takesIdleWords && !memory->stores(word);
    });
}

void SimulatedChip::hitIs(std::string_view controlRegister, U32 word) {
    auto* memory = memoryOf(registers_.address(controlRegister), word);
    if (memory == nullptr)
        throw Belmo::RangeException(fmt::format("{} = 0x{:08X} stores no row", controlRegister, word));
    memory->hitIs(memory->addressedRow(word));
}

/** Puts what a memory holds in a row in the place of the words that its registers would be written with. */
void SimulatedChip::readStored(IndirectMemory const& memory, std::span<RegisterHandle const> handles,
                               std::span<U32> words) const {
    U32& control = words.back();
    U32 const number = memory.addressedRow(control);
    if (!memory.keeps(number)) return;
    auto const row = memory.row(number);
    auto const& paths = memory.description().dataRegisters;
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (!handles[i].exists()) continue;
        auto const data = std::ranges::find(paths, registers_.paths()[handles[i].number]);
        if (data != paths.end()) words[i] = row[static_cast<std::size_t>(data - paths.begin())];
    }
    auto const content = memory.description().content;
    if (content.width == 0) return;
    U32 const mask = ((U32{1} << content.width) - 1) << content.offset;
    control = (control & ~mask) | row.back() << content.offset;
}

void SimulatedChip::readRow(std::span<RegisterHandle const> handles, std::span<U32> words) const {
    auto const size = std::min(handles.size(), words.size());
    std::size_t first = 0;
    for (std::size_t control = 0; control < size; ++control) {
        auto const* memory = memoryOf(handles[control], words[control]);
        if (memory == nullptr && idles(handles[control], words[control])) return;
        if (memory == nullptr) continue;
        auto const count = control + 1 - first;
        readStored(*memory, handles.subspan(first, count), words.subspan(first, count));
        first = control + 1;
    }
    if (first > 0) return;
    for (std::size_t i = 0; i < size; ++i) {
        if (handles[i].exists()) words[i] = words_[handles[i].number];
    }
}

std::vector<U32> SimulatedChip::state() const {
    std::vector<U32> words(words_.begin(), words_.end());
    auto const forget = [&](Belmo::String const& path) { words[registers_.address(path).number] = 0; };
    for (auto const& memory : memories_) {
        std::ranges::for_each(memory.description().dataRegisters, forget);
        forget(memory.description().controlRegister);
    }
    return words;
}

namespace {

std::vector<MemoryDescription> memoriesOf(NerioSwitch::ProfileInfo const& profile,
                                          std::vector<MemoryDescription> const& further) {
    auto memories = chipMemories(profile);
    memories.insert(memories.end(), further.begin(), further.end());
    return memories;
}

}  // namespace

Belmo::Ptr<SimulatedChip> simulatedChip(NerioSwitch::ProfileInfo const& profile,
                                        std::vector<MemoryDescription> const& furtherMemories) {
    return Belmo::make<SimulatedChip>(profile, memoriesOf(profile, furtherMemories), std::nullopt);
}

Belmo::Ptr<SimulatedChip> simulatedChip(NerioSwitch::ProfileInfo const& profile, Belmo::String const& file,
                                        std::vector<MemoryDescription> const& furtherMemories) {
    return Belmo::make<SimulatedChip>(profile, memoriesOf(profile, furtherMemories), file);
}

}  // namespace Chip
