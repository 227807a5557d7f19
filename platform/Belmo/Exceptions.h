#pragma once

#include <exception>
#include <utility>

#include "Belmo/Export.h"
#include "Belmo/Types.h"

namespace Belmo {

/** Root of everything the system throws. `typeName` is the bare class name, for tools that report it. */
class BELMO_EXPORT Exception : public std::exception {
public:
    explicit Exception(String text) : text_(std::move(text)) {}
    ~Exception() override;
    char const* what() const noexcept override { return text_.c_str(); }
    virtual char const* typeName() const noexcept { return "Exception"; }

private:
    String text_;
};

/** A value outside the range of its type. */
class BELMO_EXPORT RangeException : public Exception {
public:
    using Exception::Exception;
    ~RangeException() override;
    char const* typeName() const noexcept override { return "RangeException"; }
};

/** A stored row whose checksum or form says that it is not what was written. */
class BELMO_EXPORT CorruptionDetectedException : public Exception {
public:
    using Exception::Exception;
    ~CorruptionDetectedException() override;
    char const* typeName() const noexcept override { return "CorruptionDetectedException"; }
};

/** A text that is not the text form of the type it is read as. */
class BELMO_EXPORT DeserializationException : public Exception {
public:
    using Exception::Exception;
    ~DeserializationException() override;
    char const* typeName() const noexcept override { return "DeserializationException"; }
};

/** Something outside the process that cannot be used: a register bus, a file, a lock held by another. */
class BELMO_EXPORT ResourceException : public Exception {
public:
    using Exception::Exception;
    ~ResourceException() override;
    char const* typeName() const noexcept override { return "ResourceException"; }
};

}  // namespace Belmo
