#pragma once

#include <climits>
#include <type_traits>

// Extracts the bit field of `width` bits that starts `shift` bits above bit 0.
// The mask is built in the width of T, so a field reaching past the top of T
// keeps only the bits that exist.
template <typename T>
T get_bit(T value, unsigned int shift, unsigned int width)
{
    constexpr unsigned int bits = sizeof(T) * CHAR_BIT;
    if (shift >= bits || width == 0) {
        return T{0};
    }
    using Unsigned = std::make_unsigned_t<T>;
    const Unsigned all = static_cast<Unsigned>(~Unsigned{0});
    const Unsigned mask = width >= bits ? all : static_cast<Unsigned>((Unsigned{1} << width) - 1U);
    const auto field = static_cast<Unsigned>((static_cast<Unsigned>(value) >> shift) & mask);
    return static_cast<T>(field);
}
