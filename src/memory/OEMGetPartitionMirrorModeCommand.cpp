#include "OEMGetPartitionMirrorModeCommand.h"

#include "OemProtocol.h"

namespace OrbLib::ipmiclient {

OEMGetPartitionMirrorModeCommand::OEMGetPartitionMirrorModeCommand(IPMIRequester& requester)
    : IPMIClientCommand(requester, partmode::wire::kOemHeader, partmode::wire::kGetPartitionMirrorMode.netFn,
                        partmode::wire::kGetPartitionMirrorMode.command)
{
}

void OEMGetPartitionMirrorModeCommand::getPartMirrorMode(unsigned int partition, std::vector<unsigned char>& record)
{
    const auto response = send(partmode::wire::kGetPartitionMirrorMode, {static_cast<std::uint8_t>(partition)});
    record.insert(record.end(), response.begin(), response.end());
}

} // namespace OrbLib::ipmiclient
