#pragma once

#include "Board.h"
#include "RawResponse.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>

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

    // Opens a session over one medium that the platform layer does not own.
    using Opener = std::unique_ptr<FirmwareTransport> (*)(const FirmwareConfig& config);
    // Lets open() reach `medium` through `opener`. The embedded simulator's
    // transport lives with the simulator, which builds on the platform, so it
    // is handed in from above rather than included from here.
    static void provide(const std::string& medium, Opener opener);
};

} // namespace partmode
