#include "OEMGetXPARInfoCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetXPARInfoCommand::OEMGetXPARInfoCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetXPARInfo.netFn,
                        partmode::wire::kGetXPARInfo.command)
{
}

int OEMGetXPARInfoCommand::getXPARInfo(int partition)
{
    return sendForByte(partmode::wire::kGetXPARInfo, {static_cast<std::uint8_t>(partition)});
}

} // namespace OrbLib::ipmiclient
