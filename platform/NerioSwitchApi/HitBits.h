#pragma once

#include <map>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Belmo/Duration.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitchApi/HwRegisters.h"
#include "NerioSwitchApi/HwTypes.h"
#include "NerioSwitchApi/RegisterBus.h"
#include "Sorn/ValueType.h"

/*
 * The chip marks each row that a packet has hit in a memory of its own. A table says here how that memory is
 * read and which row each bit stands for; the framework polls, and reports every bit that it found set.
 */
namespace NerioSwitchApi {

class SwTableProfileConvertor;

/** Starts a read of hit bits: the word to write, to which the number of the read is added, and where. */
struct HitBitTrigger {
    Belmo::String path;
    U32 value = 0;
};

/**
 * What one bit of the data read stands for: in read number r, from `firstRead` to `lastRead`, the row
 * firstIndex + (r - firstRead) * stride.
 */
class BELMO_EXPORT HitBitRegistration {
    SORN_VALUE_TYPE(NerioSwitchApi, HitBitRegistration, (U32, firstRead, 0), (U32, lastRead, 0),
                    (U32, stride, 0), (HwIndex, firstIndex, 0));

    bool hasRead(U32 read) const { return read >= firstRead() && read <= lastRead(); }
    HwIndex indexOf(U32 read) const { return firstIndex() + (read - firstRead()) * stride(); }
};

/** One kind of read: its trigger, the data registers to read after it, and their bits. */
class BELMO_EXPORT HitBitReadInfo : public Belmo::Node {
public:
    HitBitReadInfo(HitBitTrigger trigger, Belmo::Ptr<HwAddressColl const> data)
        : trigger_(std::move(trigger)), data_(std::move(data)) {}
    ~HitBitReadInfo() override;

    /** Makes the record of a bit, counted from bit 0 of the first data register. */
    HitBitRegistration& bitRegistrationIs(U8 bit) { return registrations_[bit]; }
    std::map<U8, HitBitRegistration> const& bitRegistrations() const { return registrations_; }
    HitBitTrigger const& trigger() const { return trigger_; }
    HwAddressColl const& data() const { return *data_; }

private:
    HitBitTrigger trigger_;
    Belmo::Ptr<HwAddressColl const> data_;
    std::map<U8, HitBitRegistration> registrations_;
};

/** The whole description of one hit-bit table. */
class BELMO_EXPORT HitBitReadInfoWrapper : public Belmo::Node {
public:
    ~HitBitReadInfoWrapper() override;

    Belmo::Ptr<HitBitReadInfo> readInfoIs(HitBitTrigger const& trigger,
                                          Belmo::Ptr<HwAddressColl const> const& data);
    std::vector<Belmo::Ptr<HitBitReadInfo>> const& readInfos() const { return readInfos_; }

private:
    std::vector<Belmo::Ptr<HitBitReadInfo>> readInfos_;
};

/** How hit bits are read over hardware of a given state. Tables only pass it on. */
enum class HitBitTableAccessMode : U8 { afterReset, live };

/** A hit: the row, and when it was seen. */
class BELMO_EXPORT HitBitEntry {
    SORN_VALUE_TYPE(NerioSwitchApi, HitBitEntry, (HwIndex, hwIndex, 0), (Belmo::Duration, time, {}));
};

/** The hit bits of one hardware table: how they are read, and when each row was seen hit last. */
class BELMO_EXPORT HitBitTableConfig : public Belmo::Node {
public:
    /** Throws `UnknownRegisterException` where the chip lacks a register of the description. */
    HitBitTableConfig(Belmo::Ptr<HitBitReadInfoWrapper> const& readInfo, HwIndex firstIndex,
                      HwIndex lastIndex, RegisterBus& bus);
    ~HitBitTableConfig() override;

    /** The last hit of a row, if there has been one since the table came up. */
    std::optional<HitBitEntry> entry(HwIndex index) const;

    /** One kind of read with its registers looked up. Tables of one processor may share a read. */
    struct Read {
        RegisterHandle trigger;
        U32 value;
        std::vector<RegisterHandle> data;
        std::vector<std::pair<U8, HitBitRegistration>> bits;

        bool sameReadAs(Read const& other) const {
            return trigger == other.trigger && value == other.value && data == other.data;
        }
    };
    std::vector<Read> const& reads() const { return reads_; }

    /** Who is told of hits; none once the convertor is gone. */
    void convertorIs(SwTableProfileConvertor* convertor, HwTableId id) {
        convertor_ = convertor;
        id_ = id;
    }
    bool hasConvertor() const { return convertor_ != nullptr; }
    /** Records a hit and reports it; a row outside the table is none of it. */
    void hitIs(HwIndex index, Belmo::Duration time);

private:
    std::vector<Read> reads_;
    HwIndex firstIndex_;
    std::vector<Belmo::Duration> times_;
    SwTableProfileConvertor* convertor_ = nullptr;
    HwTableId id_ = 0;
};

/** What a convertor declared of a hit-bit table. */
class BELMO_EXPORT HitBitTableDescriptor : public Belmo::Node {
public:
    HitBitTableDescriptor(Belmo::String name, HwTableId id, HitBitTableAccessMode mode, HwIndex firstIndex,
                          HwIndex lastIndex)
        : name_(std::move(name)), id_(id), mode_(mode), firstIndex_(firstIndex), lastIndex_(lastIndex) {}
    ~HitBitTableDescriptor() override;

    Belmo::String const& name() const { return name_; }
    HwTableId id() const { return id_; }
    HitBitTableAccessMode mode() const { return mode_; }
    HwIndex firstIndex() const { return firstIndex_; }
    HwIndex lastIndex() const { return lastIndex_; }

private:
    Belmo::String name_;
    HwTableId id_;
    HitBitTableAccessMode mode_;
    HwIndex firstIndex_;
    HwIndex lastIndex_;
};

/** A hit-bit table that the framework built from a descriptor. */
class BELMO_EXPORT HitBitTable : public Belmo::Node {
public:
    explicit HitBitTable(Belmo::Ptr<HitBitTableConfig> config) : config_(std::move(config)) {}
    ~HitBitTable() override;
    Belmo::Ptr<HitBitTableConfig> const& config() const { return config_; }

private:
    Belmo::Ptr<HitBitTableConfig> config_;
};

/**
 * Reads the hit bits of all these tables and reports each one found set, with the time `now`. A read that
 * several tables take part in is made once, as the chip forgets a bit when it is read. Hits that were read
 * before the bus failed are reported all the same. Returns the number of bits found set.
 */
BELMO_EXPORT U32 pollHitBits(RegisterBus& bus, std::span<Belmo::Ptr<HitBitTableConfig> const> tables,
                             Belmo::Duration now);

}  // namespace NerioSwitchApi
