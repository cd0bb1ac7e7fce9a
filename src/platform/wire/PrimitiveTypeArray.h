#pragma once

#include "ByteReader.h"
#include "ByteWriter.h"
#include "PException.h"
#include "PlatformError.h"
#include "SerializableObject.h"

#include <cstdint>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace OrbLib::OrbUi {

// A growable list of numbers, serialised as a 2-byte big-endian count followed
// by each value as a signed 32-bit big-endian integer.
template <typename T>
class PrimitiveTypeArray : public SerializableObject {
    static_assert(std::is_integral_v<T>, "PrimitiveTypeArray holds numbers");

public:
    static constexpr unsigned int kValueSize = 4;

    PrimitiveTypeArray() = default;
    explicit PrimitiveTypeArray(std::vector<T> values) : values_(std::move(values)) {}

    unsigned int getSerialized(unsigned char* buffer, unsigned int size) const override
    {
        const unsigned int needed = getSerializedSize();
        if (needed > size) {
            throw PException(1, 0x50, 0x5B00, 1, partmode::error::kDetailCollection, 20019,
                             {std::string("Insufficient buffer size")});
        }
        partmode::ByteWriter writer(std::span<std::uint8_t>(buffer, needed));
        writer.u16(static_cast<std::uint16_t>(values_.size()));
        for (const T value : values_) {
            writer.i32(static_cast<std::int32_t>(value));
        }
        return needed;
    }

    [[nodiscard]] unsigned int getSerializedSize() const override
    {
        return static_cast<unsigned int>(kValueSize * values_.size() + 2);
    }

    // Appends the values of `data` to those already held; false when `data`
    // is shorter than its count says. Bytes after the values are ignored.
    bool setSerialized(const unsigned char* data, unsigned int size) override
    {
        if (size < 2) {
            return false;
        }
        partmode::ByteReader reader(std::span<const std::uint8_t>(data, size));
        const unsigned int count = reader.u16();
        if (size < kValueSize * count + 2) {
            return false;
        }
        for (unsigned int i = 0; i < count; ++i) {
            values_.push_back(static_cast<T>(reader.i32()));
        }
        return true;
    }

    void add(T value) { values_.push_back(value); }
    [[nodiscard]] std::size_t size() const { return values_.size(); }
    [[nodiscard]] T get(std::size_t index) const { return values_.at(index); }
    [[nodiscard]] const std::vector<T>& values() const { return values_; }

private:
    std::vector<T> values_;
};

} // namespace OrbLib::OrbUi
