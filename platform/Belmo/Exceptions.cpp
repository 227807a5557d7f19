#include "Belmo/Exceptions.h"

namespace Belmo {

// The destructors are here so that each type's run-time identity lives in one library.
Exception::~Exception() = default;
RangeException::~RangeException() = default;
CorruptionDetectedException::~CorruptionDetectedException() = default;
DeserializationException::~DeserializationException() = default;
ResourceException::~ResourceException() = default;

}  // namespace Belmo
