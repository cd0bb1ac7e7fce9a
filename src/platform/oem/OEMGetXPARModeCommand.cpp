#include "OEMGetXPARModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetXPARModeCommand::OEMGetXPARModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetXPARMode.netFn,
                        partmode::wire::kGetXPARMode.command)
{
}

bool OEMGetXPARModeCommand::isXPARMode(unsigned char partition)
{
    return sendForByte(partmode::wire::kGetXPARMode, {partition}) == 1;
}

} // namespace OrbLib::ipmiclient
