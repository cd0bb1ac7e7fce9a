#pragma once

#include "IPMIClientCommand.h"

#include <cstdint>

namespace OrbLib::ipmiclient {

// Reads the system's capability flags.
class OEMGetSystemCapabilitiesCommand : public IPMIClientCommand {
public:
    OEMGetSystemCapabilitiesCommand(IPMIRequester& requester, std::uint8_t header);

    // `reserved` is a flag the tool does not use; `exclusiveFeatures` is true
    // when exclusive features are enabled on the system. A response shorter
    // than the two flags throws PException.
    void getSystemCapabilities(bool& reserved, bool& exclusiveFeatures);
};

} // namespace OrbLib::ipmiclient
