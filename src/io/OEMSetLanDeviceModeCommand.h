#pragma once

#include "IPMIClientCommand.h"

namespace OrbLib::ipmiclient {

// Registers the LAN device mode byte of one I/O unit.
class OEMSetLanDeviceModeCommand : public IPMIClientCommand {
public:
    explicit OEMSetLanDeviceModeCommand(IPMIRequester& requester);

    void setLanDeviceMode(unsigned int unit, unsigned char mode);
};

} // namespace OrbLib::ipmiclient
