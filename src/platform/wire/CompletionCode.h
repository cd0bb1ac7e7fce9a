#pragma once

#include <cstdint>

// IPMI completion codes the firmware answers with.
namespace partmode::cc {

inline constexpr std::uint8_t kSuccess = 0x00;
// The partition holds an SB whose DIMMs do not satisfy a memory mode's needs;
// a memory mode change goes through only when the request accepts that.
inline constexpr std::uint8_t kReservedSb = 0x90;
inline constexpr std::uint8_t kInvalidCommand = 0xC1;
inline constexpr std::uint8_t kRequestDataLengthInvalid = 0xC7;
inline constexpr std::uint8_t kParameterOutOfRange = 0xC9;
inline constexpr std::uint8_t kCannotReturnRequestedBytes = 0xCA;
inline constexpr std::uint8_t kInvalidDataField = 0xCC;
inline constexpr std::uint8_t kNotSupportedInPresentState = 0xD5;
inline constexpr std::uint8_t kUnspecifiedError = 0xFF;

} // namespace partmode::cc
