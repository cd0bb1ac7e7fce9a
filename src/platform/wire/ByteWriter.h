#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>

namespace partmode {

// Writes big-endian integers into a fixed byte range; writing past its end
// throws std::out_of_range.
class ByteWriter {
public:
    explicit ByteWriter(std::span<std::uint8_t> data) : data_(data) {}

    void u8(std::uint8_t value) { put(value); }
    void u16(std::uint16_t value)
    {
        reserve(2);
        put(static_cast<std::uint8_t>(value >> 8));
        put(static_cast<std::uint8_t>(value));
    }
    void i32(std::int32_t value)
    {
        const auto bits = static_cast<std::uint32_t>(value);
        reserve(4);
        for (int shift = 24; shift >= 0; shift -= 8) {
            put(static_cast<std::uint8_t>(bits >> shift));
        }
    }

    // Hands out the next `count` bytes for another writer to fill.
    std::span<std::uint8_t> area(std::size_t count)
    {
        reserve(count);
        auto result = data_.subspan(position_, count);
        position_ += count;
        return result;
    }

    [[nodiscard]] std::size_t position() const { return position_; }

private:
    void reserve(std::size_t count) const
    {
        if (count > data_.size() - position_) {
            throw std::out_of_range("write past the end of the buffer");
        }
    }
    void put(std::uint8_t value)
    {
        reserve(1);
        data_[position_++] = value;
    }

    std::span<std::uint8_t> data_;
    std::size_t position_ = 0;
};

} // namespace partmode
