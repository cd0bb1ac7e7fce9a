#pragma once

#include "Firmware.h"
#include "FirmwareTransport.h"

namespace partmode {

// Reaches the firmware simulator inside this process, on its state file.
class SimulatorTransport : public FirmwareTransport {
public:
    explicit SimulatorTransport(const std::filesystem::path& statePath);

    RawResponse request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data) override;

private:
    sim::Firmware firmware_;
};

} // namespace partmode
