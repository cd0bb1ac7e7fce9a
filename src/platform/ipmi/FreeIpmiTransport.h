#pragma once

#include "FirmwareTransport.h"

#include <cstdint>
#include <memory>
#include <string>

namespace partmode {

// A session with a real BMC through libfreeipmi: IPMI 2.0 (RMCP+) over LAN,
// or the kernel's in-band IPMI device. Every failure of the session becomes a
// PException with detail kDetailSession, and a trace line that quotes
// libfreeipmi's own words.
class FreeIpmiTransport : public FirmwareTransport {
public:
    // Opens an RMCP+ session with the BMC the board names.
    static std::unique_ptr<FreeIpmiTransport> openLan(const FirmwareConfig& config);
    // Opens the board's in-band IPMI device.
    static std::unique_ptr<FreeIpmiTransport> openInband(const FirmwareConfig& config);

    ~FreeIpmiTransport() override;

    // Network function 0x2E requests travel behind the enterprise number of
    // the board, and so do their answers.
    RawResponse request(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data) override;

private:
    struct Context;
    FreeIpmiTransport(std::unique_ptr<Context> context, std::uint32_t iana);

    std::unique_ptr<Context> context_;
    std::uint32_t iana_;
};

} // namespace partmode
