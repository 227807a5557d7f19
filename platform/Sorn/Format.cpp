#include "Sorn/Format.h"

#include <cstdarg>
#include <cstddef>
#include <cstdio>

namespace Sorn {

Belmo::String _fmt(char const* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    int const length = std::vsnprintf(nullptr, 0, format, arguments);
    va_end(arguments);
    Belmo::String text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, again);
    va_end(again);
    return text;
}

}  // namespace Sorn
