#include "OEMGetTPMEnablesCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetTPMEnablesCommand::OEMGetTPMEnablesCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetTPMEnables.netFn,
                        partmode::wire::kGetTPMEnables.command)
{
}

void OEMGetTPMEnablesCommand::getTPMEnables(unsigned int partition, std::vector<unsigned char>& out)
{
    const auto response = send(partmode::wire::kGetTPMEnables, {static_cast<std::uint8_t>(partition)});
    out.insert(out.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
