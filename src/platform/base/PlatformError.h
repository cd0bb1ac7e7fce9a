#pragma once

#include <cstdint>

// Exception details and action codes of the platform's own failures (the ones
// that are not firmware completion codes). docs/protocol.md lists them.
namespace partmode::error {

// Detail of a firmware completion code; the action code is the completion code.
inline constexpr std::uint16_t kDetailCompletionCode = 0x0700;
// Detail of the component-info collection's failures.
inline constexpr std::uint16_t kDetailCollection = 0x0601;

inline constexpr std::uint16_t kDetailBoard = 0x0801;
inline constexpr std::uint16_t kDetailUser = 0x0802;
inline constexpr std::uint16_t kDetailFirmwareState = 0x0803;
inline constexpr std::uint16_t kDetailTransport = 0x0804;
inline constexpr std::uint16_t kDetailResponse = 0x0805;
// The IPMI session over LAN or the in-band device failed; the action code
// says how (kActionRefused, kActionMalformed and the transport codes below).
inline constexpr std::uint16_t kDetailSession = 0x0806;
// The BMC password file cannot be used.
inline constexpr std::uint16_t kDetailPasswordFile = 0x0807;

// The audit destination cannot be written, so no change is requested.
inline constexpr std::uint16_t kDetailAudit = 0x0808;

// Action codes that go with the details above.
inline constexpr std::uint8_t kActionUnreadable = 0x01;   // file missing or unreadable
inline constexpr std::uint8_t kActionMalformed = 0x02;    // file or answer does not parse
inline constexpr std::uint8_t kActionRefused = 0x03;      // user unknown, session refused
inline constexpr std::uint8_t kActionIo = 0x04;           // lock, write or rename failed
inline constexpr std::uint8_t kActionTimeout = 0x05;      // no answer within the session timeout
inline constexpr std::uint8_t kActionUnreachable = 0x06;  // host or device cannot be reached or opened
inline constexpr std::uint8_t kActionInsecure = 0x07;     // file redirected, not regular or not private enough
inline constexpr std::uint8_t kActionSessionOther = 0x08; // any other failure of the session library
inline constexpr std::uint8_t kActionLockTimeout = 0x09;  // a lock stayed held by another process too long

// Message id the platform attaches to its own failures.
inline constexpr int kMessagePlatformFailure = 20040;

} // namespace partmode::error
