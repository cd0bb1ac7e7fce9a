#include "OEMGetLanDeviceModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetLanDeviceModeCommand::OEMGetLanDeviceModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetLanDeviceMode.netFn,
                        partmode::wire::kGetLanDeviceMode.command)
{
}

void OEMGetLanDeviceModeCommand::getLanDeviceMode(unsigned int unit, std::vector<unsigned char>& out)
{
    out.assign({sendForByte(partmode::wire::kGetLanDeviceMode, {static_cast<std::uint8_t>(unit)})});
}

} // namespace OrbLib::ipmiclient
