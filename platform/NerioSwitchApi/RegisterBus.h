#pragma once

#include <span>
#include <string_view>

#include "Belmo/Exceptions.h"
#include "Belmo/Export.h"
#include "Belmo/Ptr.h"
#include "Belmo/Types.h"

namespace NerioSwitchApi {

/** A register of a bus, looked up once by its path; opaque to everything but the bus that gave it. */
struct RegisterHandle {
    static constexpr U32 noRegister = 0xFFFFFFFF;

    U32 number = noRegister;

    bool exists() const { return number != noRegister; }
    friend bool operator==(RegisterHandle, RegisterHandle) = default;
};

/** A path that the chip's register map does not have. */
class BELMO_EXPORT UnknownRegisterException : public Belmo::Exception {
public:
    /** `where` says what wanted the register, if that is known. */
    explicit UnknownRegisterException(std::string_view path, std::string_view where = {});
    ~UnknownRegisterException() override;
    char const* typeName() const noexcept override { return "UnknownRegisterException"; }
    Belmo::String const& path() const { return path_; }

private:
    Belmo::String path_;
};

/** A register access that the hardware refused or did not finish. */
class BELMO_EXPORT BusException : public Belmo::Exception {
public:
    using Exception::Exception;
    ~BusException() override;
    char const* typeName() const noexcept override { return "BusException"; }
};

/**
 * The way to the chip's registers, 32 bits each. Paths are plain strings such as "egress/port[3]/cfg"; they
 * are looked up when a table is created and never appear where entries are written.
 */
class BELMO_EXPORT RegisterBus : public Belmo::Node {
public:
    ~RegisterBus() override;

    /** The register of that path; throws `UnknownRegisterException`. */
    virtual RegisterHandle address(std::string_view path) = 0;
    /** The path that a handle of this bus stands for. */
    virtual Belmo::String path(RegisterHandle handle) const = 0;

    virtual U32 read(RegisterHandle handle) = 0;
    /** Writes one register; throws `BusException`. */
    virtual void write(RegisterHandle handle, U32 word) = 0;
    /**
     * Writes a whole row: `words[i]` to `handles[i]`, in rising order, so that a control word, which stands
     * behind its data words, comes last. A handle that does not exist is passed over.
     */
    virtual void writeRow(std::span<RegisterHandle const> handles, U32 const* words);
};

}  // namespace NerioSwitchApi
