#include "Lanvo/Address.h"

#include <charconv>
#include <cstddef>
#include <string_view>

#include "Belmo/Exceptions.h"
#include "Sorn/Format.h"

namespace Lanvo {

namespace {

bool readByte(std::string_view digits, int base, U8& byte) {
    if (base == 10 && digits.size() > 1 && digits.front() == '0') return false;
    auto const* const last = digits.data() + digits.size();
    auto const [end, error] = std::from_chars(digits.data(), last, byte, base);
    return error == std::errc() && end == last;
}

/** Reads `size` numbers below 256 with `separator` between them. */
template <std::size_t size>
std::array<U8, size> takeBytes(Sorn::CharRange& range, char const* separator, int base, char const* what) {
    std::array<U8, size> bytes{};
    auto const whole = range.rest().substr(0, 40);
    for (std::size_t i = 0; i < size; ++i) {
        bool const separated = i == 0 || range.take(separator);
        if (!separated || !readByte(range.takeUntil(".:/,(){}= "), base, bytes[i])) {
            throw Belmo::DeserializationException(
                Sorn::_fmt("\"%.*s\" is no %s", static_cast<int>(whole.size()), whole.data(), what));
        }
    }
    return bytes;
}

}  // namespace

Belmo::String IpAddr::text() const {
    return Sorn::_fmt("%d.%d.%d.%d", bytes_[0], bytes_[1], bytes_[2], bytes_[3]);
}

IpAddr IpAddr::fromText(Sorn::CharRange& range) {
    IpAddr result;
    result.bytes_ = takeBytes<4>(range, ".", 10, "IPv4 address");
    return result;
}

Prefix::Prefix(IpAddr address, U8 length) : address_(address), length_(length) {
    if (!validAsPrefix(address, length)) {
        throw Belmo::RangeException("Lanvo::Prefix::validAsPrefix != true not allowed");
    }
}

Belmo::String Prefix::text() const {
    return isNull() ? "null" : address_.text() + Sorn::_fmt("/%d", length_);
}

Prefix Prefix::fromText(Sorn::CharRange& range) {
    if (range.take("null")) return null();
    auto const address = IpAddr::fromText(range);
    range.expect("/");
    auto const length = range.takeNumber();
    // 255 would make a null prefix, which has a text of its own.
    return {address, static_cast<U8>(length > 32 ? U64{33} : length)};
}

Belmo::String EthAddr::text() const {
    return Sorn::_fmt("%02x:%02x:%02x:%02x:%02x:%02x", bytes_[0], bytes_[1], bytes_[2], bytes_[3], bytes_[4],
                      bytes_[5]);
}

EthAddr EthAddr::fromText(Sorn::CharRange& range) {
    return EthAddr(takeBytes<6>(range, ":", 16, "Ethernet address"));
}

}  // namespace Lanvo
