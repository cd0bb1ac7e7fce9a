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
    } else if (failure.kind() == sim::StateError::Kind::Busy) {
        action = error::kActionLockTimeout;
    }
    return PException(1, 0x52, command, action, error::kDetailFirmwareState, error::kMessagePlatformFailure,
                      {std::string(failure.what())});
}

// Runs before main(): a program that links this transport (partmode_core links
// it whole, so the tool, its tests and its fuzz targets all do) reaches boards
// whose firmware transport is "simulator".
[[maybe_unused]] const bool kProvided = (FirmwareTransport::provide("simulator", &SimulatorTransport::open), true);

} // namespace

// Opening checks nothing: every request reads the state file anyway, and the
// first creates it with the defaults, so a file that cannot be used fails the
// session there, with the same failure, and is not parsed once more.
SimulatorTransport::SimulatorTransport(const std::filesystem::path& statePath) : firmware_(statePath) {}

std::unique_ptr<FirmwareTransport> SimulatorTransport::open(const FirmwareConfig& config)
{
    return std::make_unique<SimulatorTransport>(config.state);
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
