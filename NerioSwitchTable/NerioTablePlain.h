#pragma once

#include "NerioSwitchApi/SwTable.h"

#include "NerioSwitchTable/NerioTableEntries.h"

/*
 * The PLAIN shape: one row per key, at a computed index, on its own registers or through a control register.
 * A deletion rewrites the row with the default result; nothing deletes a row in hardware.
 */
namespace NerioSwitchTable {

template <class Key, class Result>
class PlainTable;

/** Base of the convertors of plain tables: writes one key's rows wherever they stand. */
template <class Key, class Result>
class PlainConvertor : public NerioSwitchApi::SwTableProfileConvertor {
public:
    using Table = PlainTable<Key, Result>;

    /** Throws `Belmo::RangeException` if the chip at hand has no row for the key. */
    virtual void checkKey(Key const& key) const = 0;
    /** Brings the key's rows in line with a result; writes only what differs from the shadow. */
    virtual void hwTableEntryIs(Key const& key, Result const& result) = 0;

    Table& swTable() const { return *swTable_; }
    void swTableIs(Table& table) { swTable_ = &table; }

private:
    Table* swTable_ = nullptr;
};

/** A plain software table: the map from key to result that an agent wants in hardware. */
template <class KeyType, class ResultType>
class PlainTable : public KeyedTable<NerioSwitchApi::SwTable, EntryMap<KeyType, ResultType>> {
public:
    using Keyed = KeyedTable<NerioSwitchApi::SwTable, EntryMap<KeyType, ResultType>>;
    using Key = KeyType;
    using Result = ResultType;
    using Convertor = PlainConvertor<Key, Result>;

    void handleEntry(Key const& key) override {
        if (this->initialized() && convertor_ != nullptr) convertor_->hwTableEntryIs(key, this->entry(key));
    }

    void doSetProfileConvertor(Belmo::Ptr<NerioSwitchApi::SwTableTypes> const& types) final {
        auto const convertor = profileConvertorFactory();
        convertor->typesAre(*types);
        convertor->profileIs(this->profile());
        convertor->swTableIs(*this);
        convertor_ = convertor.get();
        this->profileConvertorPtrIs(convertor);
    }

protected:
    explicit PlainTable(Belmo::String const& name) : Keyed(name) {}

    /** A new convertor: the family's one concrete class. */
    virtual Belmo::Ptr<Convertor> profileConvertorFactory() const = 0;
    void checkKey(Key const& key) const override { convertor_->checkKey(key); }

private:
    Convertor* convertor_ = nullptr;
};

}  // namespace NerioSwitchTable
