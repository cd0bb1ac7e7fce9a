#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>

namespace partmode {

// Reads big-endian integers from a byte range; reading past its end throws
// std::out_of_range, so a caller checks bounds once, where it catches.
class ByteReader {
public:
    explicit ByteReader(std::span<const std::uint8_t> data) : data_(data) {}

    std::uint8_t u8() { return static_cast<std::uint8_t>(take(1)[0]); }
    std::uint16_t u16()
    {
        const auto bytes = take(2);
        return static_cast<std::uint16_t>((bytes[0] << 8) | bytes[1]);
    }
    std::int32_t i32()
    {
        const auto bytes = take(4);
        const std::uint32_t value = (std::uint32_t{bytes[0]} << 24) | (std::uint32_t{bytes[1]} << 16) |
                                    (std::uint32_t{bytes[2]} << 8) | std::uint32_t{bytes[3]};
        return static_cast<std::int32_t>(value);
    }
    std::span<const std::uint8_t> bytes(std::size_t count) { return take(count); }

    [[nodiscard]] std::size_t position() const { return position_; }
    [[nodiscard]] std::size_t remaining() const { return data_.size() - position_; }

private:
    std::span<const std::uint8_t> take(std::size_t count)
    {
        if (count > remaining()) {
            throw std::out_of_range("read past the end of the data");
        }
        auto result = data_.subspan(position_, count);
        position_ += count;
        return result;
    }

    std::span<const std::uint8_t> data_;
    std::size_t position_ = 0;
};

} // namespace partmode
