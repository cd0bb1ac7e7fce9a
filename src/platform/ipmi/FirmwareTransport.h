#pragma once

#include "Board.h"
#include "RawResponse.h"

#include <cstdint>
#include <memory>
#include <span>

namespace partmode {

// One open session with the partition firmware, over whatever medium the
// board names. Closing the session is destroying the object.
class FirmwareTransport {
public:
    FirmwareTransport() = default;
    FirmwareTransport(const FirmwareTransport&) = delete;
    FirmwareTransport& operator=(const FirmwareTransport&) = delete;
    virtual ~FirmwareTransport() = default;

    // Sends one raw request and returns the firmware's answer. A failure of
    // the medium throws PException; a completion code is an answer.
    virtual RawResponse request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data) = 0;

    // Opens a session as `config` says; throws PException when it cannot.
    static std::unique_ptr<FirmwareTransport> open(const FirmwareConfig& config);
};

} // namespace partmode
