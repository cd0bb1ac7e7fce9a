#include "LanDeviceModeCommand.h"

#include "CommonUtil.h"
#include "OEMGetLanDeviceModeCommand.h"
#include "OEMGetPartitionInfoCommand.h"
#include "OemProtocol.h"
#include "PartModeUtil.h"
#include "PartitionInfo.h"

LanDeviceModeCommand::LanDeviceModeCommand(const char* verb, std::uint8_t traceComponent)
    : PartitionModeCommand(commandWords(verb, "lan_device_mode"), traceComponent)
{
}

int LanDeviceModeCommand::partitionArguments() { return CommonUtil::getMaxPartitionNum() != 1 ? 1 : 0; }

bool LanDeviceModeCommand::parsePartitionNumber(char** argv)
{
    if (partitionArguments() == 0) {
        partitionNumber_ = 0;
        return true;
    }
    if (!PartModeUtil::getPPARNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    return true;
}

void LanDeviceModeCommand::readNodeIds(IPMIRequester& requester, std::vector<unsigned char>& nodeIds) const
{
    OrbLib::IpmiData::PartitionInfo info;
    traceRequestFailure("OEM Get Partition Info Command", [&] {
        OrbLib::ipmiclient::OEMGetPartitionInfoCommand(requester).getPartitionInfo(static_cast<int>(partitionNumber_),
                                                                                   info);
    });
    info.getNodeIds(nodeIds);
}

void LanDeviceModeCommand::readLanDeviceMode(IPMIRequester& requester, unsigned int unit,
                                             std::vector<unsigned char>& mode) const
{
    traceRequestFailure("OEM Get Partition Lan Device Mode Command", [&] {
        OrbLib::ipmiclient::OEMGetLanDeviceModeCommand(requester).getLanDeviceMode(unit, mode);
    });
}

bool LanDeviceModeCommand::isIoUnit(unsigned char nodeId)
{
    return (nodeId & partmode::wire::kNodeKindMask) == partmode::wire::kNodeKindIoUnit;
}

unsigned int LanDeviceModeCommand::ioUnitNumber(unsigned char nodeId) { return nodeId & partmode::wire::kNodeUnitMask; }
