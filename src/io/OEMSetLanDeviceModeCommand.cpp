#include "OEMSetLanDeviceModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMSetLanDeviceModeCommand::OEMSetLanDeviceModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kSetLanDeviceMode.netFn,
                        partmode::wire::kSetLanDeviceMode.command)
{
}

void OEMSetLanDeviceModeCommand::setLanDeviceMode(unsigned int unit, unsigned char mode)
{
    send(partmode::wire::kSetLanDeviceMode, {static_cast<std::uint8_t>(unit), mode});
}

} // namespace OrbLib::ipmiclient
