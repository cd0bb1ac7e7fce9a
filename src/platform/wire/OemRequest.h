#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace partmode::wire {

using Bytes = std::vector<std::uint8_t>;

inline constexpr std::uint8_t kOemHeader = 0x71;
inline constexpr std::uint8_t kNetFnOem = 0x30;
inline constexpr std::uint8_t kNetFnGroup = 0x2E;

// What the first parameter byte of a request names; the firmware checks a
// named partition against its defined partitions.
enum class Target : std::uint8_t { None, Partition, ExtendedPartition, Unit };

// Whether the firmware changes anything when it carries a request out.
enum class Effect : std::uint8_t { Reads, Changes };

// The layout of one OEM request: the header byte 0x71 followed by a fixed
// number of parameter bytes. Both the request objects and the simulator's
// handlers go through encode() and decode(), so the layout lives here only.
struct OemRequest {
    std::uint8_t netFn;
    std::uint8_t command;
    Target target;
    std::uint8_t parameterBytes;
    const char* name;
    Effect effect = Effect::Reads;

    [[nodiscard]] constexpr std::size_t requestLength() const { return 1U + parameterBytes; }

    // Header byte followed by the parameters; the parameter count must match.
    [[nodiscard]] Bytes encode(std::initializer_list<std::uint8_t> parameters) const;

    // Fills `parameters` from a request; false when its length or header byte
    // is wrong.
    [[nodiscard]] bool decode(std::span<const std::uint8_t> request, Bytes& parameters) const;
};

} // namespace partmode::wire
