#include "FirmwareTransport.h"

#include "FreeIpmiTransport.h"
#include "PException.h"
#include "PlatformError.h"

#include <functional>
#include <map>

namespace partmode {

namespace {

// The media provided from outside the platform layer, by name.
std::map<std::string, FirmwareTransport::Opener, std::less<>>& providedMedia()
{
    static std::map<std::string, FirmwareTransport::Opener, std::less<>> media;
    return media;
}

} // namespace

void FirmwareTransport::provide(const std::string& medium, Opener opener) { providedMedia()[medium] = opener; }

std::unique_ptr<FirmwareTransport> FirmwareTransport::open(const FirmwareConfig& config)
{
    if (const auto provided = providedMedia().find(config.transport); provided != providedMedia().end()) {
        return provided->second(config);
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
