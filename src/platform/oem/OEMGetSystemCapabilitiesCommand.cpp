#include "OEMGetSystemCapabilitiesCommand.h"

#include "OemProtocol.h"
#include "PException.h"
#include "PlatformError.h"

#include <string>

namespace OrbLib::ipmiclient {

OEMGetSystemCapabilitiesCommand::OEMGetSystemCapabilitiesCommand(IPMIRequester& requester, std::uint8_t header)
    : IPMIClientCommand(requester, header, partmode::wire::kGetSystemCapabilities.netFn,
                        partmode::wire::kGetSystemCapabilities.command)
{
}

void OEMGetSystemCapabilitiesCommand::getSystemCapabilities(bool& reserved, bool& exclusiveFeatures)
{
    namespace wire = partmode::wire;
    const auto response = send(wire::kGetSystemCapabilities, {});
    if (response.size() < wire::kSystemCapabilitiesSize) {
        throw PException(1, 0x52, command(), partmode::error::kActionMalformed, partmode::error::kDetailResponse,
                         partmode::error::kMessagePlatformFailure,
                         {std::string(wire::kGetSystemCapabilities.name), std::string("short response")});
    }
    reserved = response[0] != 0;
    exclusiveFeatures = response[wire::kSystemCapabilitiesExclusive] != 0;
}

} // namespace OrbLib::ipmiclient
