#pragma once

#include <array>
#include <initializer_list>
#include <map>
#include <utility>

#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "NerioSwitchApi/HwTypes.h"

namespace NerioSwitchApi {

/** The register paths of one row, in word order. An empty path is a word without a register. */
class BELMO_EXPORT HwAddressColl : public Belmo::Node {
public:
    ~HwAddressColl() override;

    void addressIs(DataArrayIndex position, Belmo::String path) {
        paths_[position.value()] = std::move(path);
    }
    Belmo::String const& address(DataArrayIndex position) const { return paths_[position.value()]; }
    /** Number of words that go to registers; words of an entry behind them stay in the shadow. */
    void sizeIs(U8 size) { size_ = size; }
    U8 size() const { return size_; }

private:
    std::array<Belmo::String, maxEntryWords> paths_;
    U8 size_ = 0;
};

/** Makes the addresses of a row whose registers share a prefix. */
BELMO_EXPORT Belmo::Ptr<HwAddressColl const> addressesOf(Belmo::String const& prefix,
                                                         std::initializer_list<char const*> registers);

/** Makes the address of a row with a single register. */
BELMO_EXPORT Belmo::Ptr<HwAddressColl const> addressOf(Belmo::String const& path);

/** Says which registers a row of a hardware table uses. A table may derive one of its own. */
class BELMO_EXPORT HwTableRegisterMapping : public Belmo::Node {
public:
    ~HwTableRegisterMapping() override;

    Belmo::String const& name() const { return name_; }
    /** The addresses of a row; null for a row that has none. */
    virtual Belmo::Ptr<HwAddressColl const> getRegister(HwIndex index) const = 0;

protected:
    explicit HwTableRegisterMapping(Belmo::String name) : name_(std::move(name)) {}

private:
    Belmo::String name_;
};

/** All rows use the same registers: the row number goes out in a control word. */
class BELMO_EXPORT HwTableRegisterMappingConst : public HwTableRegisterMapping {
public:
    HwTableRegisterMappingConst(Belmo::String name, Belmo::Ptr<HwAddressColl const> registers)
        : HwTableRegisterMapping(std::move(name)), registers_(std::move(registers)) {}
    Belmo::Ptr<HwAddressColl const> getRegister(HwIndex index) const override;

private:
    Belmo::Ptr<HwAddressColl const> registers_;
};

/** Each row has registers of its own, such as "egress/port[%d]/cfg" per port. */
class BELMO_EXPORT HwTableRegisterMappingColl : public HwTableRegisterMapping {
public:
    explicit HwTableRegisterMappingColl(Belmo::String name) : HwTableRegisterMapping(std::move(name)) {}
    void regsIs(HwIndex index, Belmo::Ptr<HwAddressColl const> const& registers) {
        registers_[index] = registers;
    }
    Belmo::Ptr<HwAddressColl const> getRegister(HwIndex index) const override;

private:
    std::map<HwIndex, Belmo::Ptr<HwAddressColl const>> registers_;
};

/** Ranges of rows share registers: each is given by its last row, and begins behind the range before it. */
class BELMO_EXPORT HwTableRegisterMappingRange : public HwTableRegisterMapping {
public:
    explicit HwTableRegisterMappingRange(Belmo::String name) : HwTableRegisterMapping(std::move(name)) {}
    void regsIs(HwIndex last, Belmo::Ptr<HwAddressColl const> const& registers) {
        registers_[last] = registers;
    }
    Belmo::Ptr<HwAddressColl const> getRegister(HwIndex index) const override;

private:
    std::map<HwIndex, Belmo::Ptr<HwAddressColl const>> registers_;
};

}  // namespace NerioSwitchApi
