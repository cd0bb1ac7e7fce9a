#include "SimulatorTransport.h"

#include "PException.h"
#include "PlatformError.h"
#include "StateError.h"

namespace partmode {

namespace {

// A state file the simulator cannot use is a failure of the session.
PException sessionFailure(std::uint8_t command, const sim::StateError& failure)
{
    std::uint8_t action = error::kActionIo;
    if (failure.kind() == sim::StateError::Kind::Unreadable) {
        action = error::kActionUnreadable;
    } else if (failure.kind() == sim::StateError::Kind::Malformed) {
        action = error::kActionMalformed;
    }
    return PException(1, 0x52, command, action, error::kDetailFirmwareState, error::kMessagePlatformFailure,
                       {std::string(failure.what())});
}

} // namespace

SimulatorTransport::SimulatorTransport(const std::filesystem::path& statePath) : firmware_(statePath)
{
    try {
        firmware_.open();
    } catch (const sim::StateError& failure) {
        throw sessionFailure(0, failure);
    }
}

RawResponse SimulatorTransport::request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data)
{
    try {
        return firmware_.handle(netFn, command, data);
    } catch (const sim::StateError& failure) {
        throw sessionFailure(command, failure);
    }
}

} // namespace partmode
