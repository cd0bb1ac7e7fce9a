#pragma once

#include "Firmware.h"
#include "FirmwareTransport.h"

namespace partmode {

// Reaches the firmware simulator inside this process, on its state file. It
// lives with the simulator and offers itself to FirmwareTransport::open as the
// medium "simulator" when the program starts, so the platform layer, on which
// the simulator builds, never includes the simulator.
class SimulatorTransport : public FirmwareTransport {
public:
    explicit SimulatorTransport(const std::filesystem::path& statePath);

    // The medium "simulator": a session on the state file the board names.
    static std::unique_ptr<FirmwareTransport> open(const FirmwareConfig& config);

    RawResponse request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data) override;

private:
    sim::Firmware firmware_;
};

} // namespace partmode
