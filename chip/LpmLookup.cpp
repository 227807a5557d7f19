#include "chip/LpmLookup.h"

#include <bit>
#include <fmt/format.h>
#include <span>

#include "Belmo/Exceptions.h"
#include "NerioSwitch/CrcHash.h"

#include "chip/BitRow.h"

namespace Chip {

namespace {

using Words = std::span<U32 const>;

/** A stage that hashes, and what its rows store of a key. */
struct Stage {
    /** The longest route that it serves. */
    U8 number;
    /** Address bits that are looked up; the next two choose the cell. */
    U8 addressBits;
    /** Bits that are hashed. */
    U8 hashedBits;
    /** The lowest bits of a row hold that many top bits of the address, and the VRF above them. */
    U8 storedBits;
    bool hashes12;
    /** Where the row's bit of a valid key is; 0 is right behind the VRF. */
    U8 validBit = 0;
};

constexpr std::array<Stage, 7> hashedStages{{{32, 30, 35, 18, true},
                                             {29, 27, 41, 15, true, 29},
                                             {26, 24, 29, 12, true},
                                             {23, 21, 26, 11, false},
                                             {20, 18, 23, 8, false},
                                             {17, 15, 20, 5, false},
                                             {14, 12, 17, 2, false}}};
constexpr U8 ways = 2;

/** Where the bits of a cell are, counted from the bit behind the one of a valid key. */
constexpr BitRange lowCellBits(U8 cell) {
    return {static_cast<U8>(14 * cell), 14};
}
constexpr BitRange highCellBits(U8 cell) {
    return {static_cast<U8>(58 + 2 * cell), 2};
}
constexpr BitRange trapBit{56, 1};

/** A row with its parity bit holds an even number of ones in these words. */
constexpr std::size_t parityWords = 3;

constexpr U32 nexthopMask = 0xFFF;
/** Next hops are stored with the bits of null turned over, so that an empty cell holds none. */
constexpr U32 nullNexthop = 57;

constexpr U32 directBits = 11;
constexpr U32 directValid = 1u << 12;

bool holdsNexthop(U32 encoding) {
    return (encoding & nexthopMask) != 0;
}

U16 nexthopOf(U32 encoding) {
    return static_cast<U16>((encoding & nexthopMask) ^ nullNexthop);
}

NerioSwitch::CrcHashes hashesOf(Stage const& stage, U8 vrf, U32 address) {
    U64 const key = U64{vrf} << stage.addressBits | address >> (32 - stage.addressBits);
    std::array<U8, 8> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<U8>(key >> (8 * i));
    return stage.hashes12 ? NerioSwitch::crc12Hashes(bytes.data(), stage.hashedBits)
                          : NerioSwitch::crc10Hashes(bytes.data(), stage.hashedBits);
}

/** The hit in a row that holds the key, or nothing if the cell is null. */
std::optional<LpmHit> cellOf(Stage const& stage, HashPlace place, Words words, U32 validBit, U32 address) {
    BitRow const result = BitRow(words).from(validBit + 1);
    auto const cell = static_cast<U8>(address >> (30 - stage.addressBits) & 3);
    auto const encoding = result.at(lowCellBits(cell)) | result.at(highCellBits(cell)) << 14;
    if (!holdsNexthop(static_cast<U32>(encoding))) return std::nullopt;
    return LpmHit{.stage = stage.number,
                  .place = place,
                  .cell = cell,
                  .encoding = static_cast<U16>(encoding),
                  .nexthop = nexthopOf(static_cast<U32>(encoding)),
                  .cpuTrap = result.at(trapBit) != 0};
}

std::optional<LpmHit> findIn(Stage const& stage, IndirectMemory const& memory, U32 vrfBits, U8 vrf,
                             U32 address) {
    U32 const validBit = stage.validBit != 0 ? stage.validBit : stage.storedBits + vrfBits;
    // Bits between the VRF and the valid bit are 0 in a route; a multicast route has one of them set.
    U32 const wanted = address >> (32 - stage.storedBits) | U32{vrf} << stage.storedBits | 1u << validBit;
    U32 const compared = (2u << validBit) - 1;
    auto const rows = hashesOf(stage, vrf, address);
    for (U8 way = 0; way < ways; ++way) {
        HashPlace const place{way, rows.way(way)};
        auto const words = memory.row(way * memory.description().rowsPerWay + place.row);
        if ((words[0] & compared) != wanted || !evenParity(words.first(parityWords))) continue;
        return cellOf(stage, place, words, validBit, address);
    }
    return std::nullopt;
}

}  // namespace

LpmLookup::LpmLookup(SimulatedChip& chip, NerioSwitch::ProfileInfo const& profile, U32 processor)
    : vrfs_(profile.numVrfs),
      vrfBits_(static_cast<U32>(std::bit_width(vrfs_)) - 1),
      directTrapBit_(profile.hwApi >= NerioSwitch::ProfileHwApi(5, 1) ? 13 : 15) {
    static_assert(hashStages == hashedStages.size());
    if (vrfs_ != 4 && vrfs_ != 8 && vrfs_ != 32)
        throw Belmo::RangeException(fmt::format("route lookup: no rows are known of {} VRFs", vrfs_));
    auto const prefix = fmt::format("ingress/processor_l3[{}]/lpm", processor);
    for (std::size_t i = 0; i < stages_.size(); ++i)
        stages_[i] = &chip.indirectMemory(fmt::format("{}{}", prefix, hashedStages[i].number));
    direct_ = &chip.indirectMemory(fmt::format("{}{}", prefix, directBits));
}

std::optional<LpmHit> LpmLookup::findDirect(U8 vrf, U32 address) const {
    U32 const row = U32{vrf} << directBits | address >> (32 - directBits);
    auto const words = direct_->row(row);
    U32 const encoding = words[0] & nexthopMask;
    if ((words[0] & directValid) == 0 || !holdsNexthop(encoding) || !evenParity(words)) return std::nullopt;
    return LpmHit{.stage = directBits,
                  .place = {0, row},
                  .cell = 0,
                  .encoding = static_cast<U16>(encoding),
                  .nexthop = nexthopOf(encoding),
                  .cpuTrap = (words[0] >> directTrapBit_ & 1) != 0};
}

std::optional<LpmHit> LpmLookup::find(U8 vrf, U32 address) const {
    if (vrf >= vrfs_)
        throw Belmo::RangeException(fmt::format("route lookup: VRF {} is above {}", vrf, vrfs_ - 1));
    for (std::size_t i = 0; i < stages_.size(); ++i) {
        if (auto const hit = findIn(hashedStages[i], *stages_[i], vrfBits_, vrf, address)) return hit;
    }
    return findDirect(vrf, address);
}

// NOLINTNEXTLINE(readability-make-member-function-const): a packet leaves its hit bit behind
std::optional<LpmHit> LpmLookup::packetIs(U8 vrf, U32 address) {
    auto const hit = find(vrf, address);
    if (!hit) return hit;
    auto& rows = memory(hit->stage);
    rows.hitIs(hit->place.way * rows.description().rowsPerWay + hit->place.row);
    return hit;
}

IndirectMemory& LpmLookup::memory(U8 stage) const {
    for (std::size_t i = 0; i < stages_.size(); ++i) {
        if (hashedStages[i].number == stage) return *stages_[i];
    }
    return *direct_;
}

}  // namespace Chip
