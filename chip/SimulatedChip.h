#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"
#include "NerioSwitch/ProfileInfo.h"
#include "NerioSwitchApi/CheckedFile.h"
#include "NerioSwitchApi/FileLock.h"
#include "NerioSwitchApi/RegisterBus.h"

#include "chip/IndirectMemory.h"
#include "chip/RegisterMap.h"

namespace Chip {

/**
 * The chip of a profile in memory: its registers, which start as 0, and the memories behind control words.
 * A handle is the register's position in the chip's memory.
 */
class BELMO_EXPORT SimulatedChip final : public NerioSwitchApi::RegisterBus {
public:
    /**
     * A chip with just these memories; `simulatedChip` gives it those that the chip of the profile has.
     * Without a file its memory goes with it; see there for what a file does.
     */
    SimulatedChip(NerioSwitch::ProfileInfo const& profile, std::vector<MemoryDescription> const& memories,
                  std::optional<Belmo::String> const& file);
    ~SimulatedChip() override;

    NerioSwitchApi::RegisterHandle address(std::string_view path) override;
    Belmo::String path(NerioSwitchApi::RegisterHandle handle) const override;
    U32 read(NerioSwitchApi::RegisterHandle handle) override;
    /** A strobe for a row that its memory does not have throws, and the register keeps its word. */
    void write(NerioSwitchApi::RegisterHandle handle, U32 word) override;
    void writeRow(std::span<NerioSwitchApi::RegisterHandle const> handles, U32 const* words) override;

    RegisterMap const& registers() const { return registers_; }
    /** The memory of that name; throws `Belmo::RangeException`. */
    IndirectMemory const& indirectMemory(std::string_view name) const {
        return memories_[memoryNumber(name)];
    }
    IndirectMemory& indirectMemory(std::string_view name) { return memories_[memoryNumber(name)]; }

    /**
     * A packet hit a row: sets the row's hit bit, as the chip's own lookups do. The row is the one that this
     * word in that control register stores, so a row's control word names it. Throws `Belmo::RangeException`
     * for a word that stores no row, or one without a hit bit, `NerioSwitchApi::BusException` for a row
     * beyond the end and `NerioSwitchApi::UnknownRegisterException`.
     */
    void hitIs(std::string_view controlRegister, U32 word);

    /** Every word of the chip: the registers by number, then the memories in their given order. */
    std::span<U32 const> memory() const { return words_; }
    /**
     * Replaces the words of a row, as they would be written to these registers, by those that the chip holds
     * in the row: what the memory has there that their control word stores into, or else the registers'. A
     * row may be several of the memory's, with a control word behind the data words of each. Words that the
     * memory does not keep stay as they are, and so do those of a control word that stores nothing where such
     * words are a matter of course. Throws `NerioSwitchApi::BusException` for a row beyond the end.
     */
    void readRow(std::span<NerioSwitchApi::RegisterHandle const> handles, std::span<U32> words) const;
    /**
     * What the chip works by: its memory with the data and control registers of memories taken as 0, since
     * those hold no more than the row that was accessed last. Hit bits count: they are zero until packets
     * come, and zero again once they were read.
     */
    std::vector<U32> state() const;

private:
    /** The memory that a control word stores a row of; null for none, or another register. */
    IndirectMemory* memoryOf(NerioSwitchApi::RegisterHandle handle, U32 word) const;
    /** Whether a control word stores nothing, and is meant to. */
    bool idles(NerioSwitchApi::RegisterHandle handle, U32 word) const;
    void put(NerioSwitchApi::RegisterHandle handle, U32 word);
    void readStored(IndirectMemory const& memory, std::span<NerioSwitchApi::RegisterHandle const> handles,
                    std::span<U32> words) const;
    std::span<U32> wordsIn(Belmo::String const& file, std::vector<MemoryDescription> const& memories,
                           std::size_t size);
    void memoryIs(MemoryDescription const& description, std::span<U32> rows);
    std::size_t memoryNumber(std::string_view name) const;
    void controlRegistersAre();
    void hitMemoriesAre();

    RegisterMap registers_;
    std::optional<NerioSwitchApi::FileLock> lock_;
    std::optional<NerioSwitchApi::CheckedFile> file_;
    std::vector<U32> owned_;  // the words of a chip without a file
    std::span<U32> words_;
    std::deque<IndirectMemory> memories_;
    std::vector<ControlRegister> controls_;
    /** For each register its control's number in `controls_` and one more; 0 for all other registers. */
    std::vector<U32> controlOf_;
};

/** The chip of a profile, with further memories besides its own; it lives as long as the process. */
BELMO_EXPORT Belmo::Ptr<SimulatedChip> simulatedChip(
    NerioSwitch::ProfileInfo const& profile, std::vector<MemoryDescription> const& furtherMemories = {});

/**
 * The same chip whose memory lies in a mapped file, so that it outlives the process that programs it, however
 * that ends. The file is made if it is missing, for its owner alone; one that is there is taken as it is.
 *
 * Throws `Belmo::ResourceException` for a file that is no chip memory, is damaged, or belongs to a chip of
 * other registers or memories, for one that another chip holds, in this process or another, and where there
 * is no room for it. A file at fault stays as it is.
 */
BELMO_EXPORT Belmo::Ptr<SimulatedChip> simulatedChip(
    NerioSwitch::ProfileInfo const& profile, Belmo::String const& file,
    std::vector<MemoryDescription> const& furtherMemories = {});

}  // namespace Chip
