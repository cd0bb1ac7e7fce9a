#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the LAN device mode byte of one I/O unit (bit 4: device disabled,
// bit 0: wake-on-LAN disabled).
class OEMGetLanDeviceModeCommand : public IPMIClientCommand {
public:
    explicit OEMGetLanDeviceModeCommand(IPMIRequester& requester);

    // Replaces `out` with the response, mode byte first; an empty response
    // throws PException.
    void getLanDeviceMode(unsigned int unit, std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
