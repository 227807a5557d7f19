#pragma once

#include <array>

#include "Sorn/ValueType.h"

#include "NerioSwitchTable/BitField.h"
#include "NerioSwitchTable/Export.h"
#include "NerioSwitchTable/NerioTablePlain.h"

namespace NerioSwitchTable {

/** An IP protocol. */
class NERIO_SWITCH_TABLE_EXPORT ProtocolRemapKey {
    SORN_VALUE_TYPE(NerioSwitchTable, ProtocolRemapKey, (U8, protocol, 0));

    explicit ProtocolRemapKey(U8 protocol) : protocol_(protocol) {}
};

/** The number that keys of ACL rules have for a protocol; hardware takes its low four bits. */
class NERIO_SWITCH_TABLE_EXPORT ProtocolRemapResult {
    SORN_VALUE_TYPE(NerioSwitchTable, ProtocolRemapResult, (U8, remappedProtocol, 0));

    explicit ProtocolRemapResult(U8 remappedProtocol) : remappedProtocol_(remappedProtocol) {}

    /** "remappedProtocol: 6 " */
    Belmo::String resultString() const;
};

/**
 * A row: a data word, others of zero, and the control word that stores them, which stands behind four or,
 * below ACL register version 2, five data words.
 */
class ProtocolRemapRow {
public:
    static constexpr U8 maxWords = 6;
    static constexpr U32 rows = 256;
    /** What the control word calls the protocols among the tables of the processor. */
    static constexpr U32 protocolTable = 3;
    /** The control word of register versions below 2. Others declare this word static as well. */
    static constexpr U8 staticWord = 5;

    static constexpr BitField remappedProtocol{"remappedProtocol", 0, 4};
    static constexpr BitField parity{"parity", 4, 1};
    /** What is read back of a row, the parity bit with it. */
    static constexpr BitField readBack{"readBack", 0, 8};

    static constexpr BitField protocol(U8 word) { return {"protocol", at(word, 0), 8}; }
    static constexpr BitField physTable(U8 word) { return {"physTable", at(word, 13), 3}; }
    static constexpr BitField pipeline(U8 word) { return {"pipeline", at(word, 16), 1}; }
    static constexpr BitField writeStrobe(U8 word) { return {"writeStrobe", at(word, 18), 1}; }

    /** Fields that are written, for a control word at that place. */
    static constexpr auto fields(U8 word) {
        return std::array{remappedProtocol, parity,         protocol(word),
                          physTable(word),  pipeline(word), writeStrobe(word)};
    }

private:
    static constexpr U16 at(U8 word, U32 bit) { return static_cast<U16>(32u * word + bit); }
};
static_assert(fieldsFit(ProtocolRemapRow::fields(4), 5) && fieldsDisjoint(ProtocolRemapRow::fields(4)));
static_assert(fieldsFit(ProtocolRemapRow::fields(5), 6) && fieldsDisjoint(ProtocolRemapRow::fields(5)));

/**
 * Per IP protocol, its number in the keys of a pipeline's ACL rules. What comes back from hardware at a warm
 * start has the row's parity in bit 4, which the next write leaves out again.
 */
class NERIO_SWITCH_TABLE_EXPORT ProtocolRemapTable final
    : public PlainTable<ProtocolRemapKey, ProtocolRemapResult> {
public:
    ProtocolRemapTable(Belmo::String const& name, U8 pipeline)
        : PlainTable<ProtocolRemapKey, ProtocolRemapResult>(name), pipeline_(pipeline) {}
    ~ProtocolRemapTable() override;

    U8 pipeline() const { return pipeline_; }

    void handleEntry(ProtocolRemapKey const& key) override;

protected:
    Belmo::Ptr<Convertor> profileConvertorFactory() const override;

private:
    U8 pipeline_;
};

using ProtocolRemapConvertor = ProtocolRemapTable::Convertor;

NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<ProtocolRemapTable> ProtocolRemapTableIs(Belmo::String const& name,
                                                                              U8 pipeline);
NERIO_SWITCH_TABLE_EXPORT Belmo::Ptr<ProtocolRemapTable> protocolRemapTableFactory(Belmo::String const& name,
                                                                                   U8 pipeline);

}  // namespace NerioSwitchTable
