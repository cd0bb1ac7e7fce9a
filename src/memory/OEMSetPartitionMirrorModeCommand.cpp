#include "OEMSetPartitionMirrorModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMSetPartitionMirrorModeCommand::OEMSetPartitionMirrorModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kSetPartitionMirrorMode.netFn,
                        partmode::wire::kSetPartitionMirrorMode.command)
{
}

void OEMSetPartitionMirrorModeCommand::setPartMirrorMode(unsigned int partition, unsigned char modeEnable,
                                                         unsigned char memoryOperationMode, unsigned char mirrorRasMode,
                                                         unsigned char acceptReservedSb)
{
    send(partmode::wire::kSetPartitionMirrorMode,
         {static_cast<std::uint8_t>(partition), modeEnable, memoryOperationMode, mirrorRasMode, acceptReservedSb});
}

} // namespace OrbLib::ipmiclient
