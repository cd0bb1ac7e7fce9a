#include "FirmwareTransport.h"

#include "FreeIpmiTransport.h"
#include "PException.h"
#include "PlatformError.h"
#include "SimulatorTransport.h"

namespace partmode {

std::unique_ptr<FirmwareTransport> FirmwareTransport::open(const FirmwareConfig& config)
{
    if (config.transport == "simulator") {
        return std::make_unique<SimulatorTransport>(config.state);
    }
    if (config.transport == "lan") {
        return FreeIpmiTransport::openLan(config);
    }
    if (config.transport == "inband") {
        return FreeIpmiTransport::openInband(config);
    }
    throw PException(1, 0x52, 0, error::kActionRefused, error::kDetailTransport, error::kMessagePlatformFailure,
                     {"unknown firmware transport " + config.transport});
}

} // namespace partmode
