#include "SetPartitionPCIAddressMode.h"

#include "OEMGetPartitionSegmentModeCommand.h"
#include "OEMSetPartitionSegmentModeCommand.h"
#include "OemProtocol.h"
#include "PException.h"
#include "PartModeUtil.h"

#include <cstdio>
#include <vector>

SetPartitionPCIAddressMode::SetPartitionPCIAddressMode() : PartitionModeCommand("set partition pci_address_mode") {}

bool SetPartitionPCIAddressMode::parseCommand(int argc, char** argv)
{
    return parsePartitionModeQuiet(
        argc, argv, [this](const char* word) { return getPCIAddressModeString(word); }, quiet_);
}

bool SetPartitionPCIAddressMode::getPCIAddressModeString(const char* word)
{
    for (const int mode : {PciAddressMode::kBus, PciAddressMode::kSegment}) {
        if (PartModeUtil::checkKeyword(word, PciAddressMode::word(mode))) {
            pciAddressMode_ = mode;
            return true;
        }
    }
    return false;
}

int SetPartitionPCIAddressMode::execute() { return executeSetFrame(); }

void SetPartitionPCIAddressMode::formatAuditText(char* auditText) const
{
    std::snprintf(auditText, kTextBufferSize, "%s",
                  pciAddressMode_ != PciAddressMode::kBus ? "PCI Address Mode=Segment" : "PCI Address Mode=Bus");
}

int SetPartitionPCIAddressMode::changeMode(IPMIRequester& requester)
{
    if (const int result = checkDynamicReconfiguration(requester); result != 0) {
        return result;
    }
    return setPCIAddressModeInfo(requester);
}

int SetPartitionPCIAddressMode::setPCIAddressModeInfo(IPMIRequester& requester)
{
    namespace wire = partmode::wire;
    if (const int result = checkPowerOff(requester); result != 0) {
        return result;
    }
    std::vector<unsigned char> mode;
    OrbLib::ipmiclient::OEMGetPartitionSegmentModeCommand(requester).getPartSegmentMode(partitionNumber_, mode);
    const auto requested = static_cast<unsigned char>(pciAddressMode_);
    // A short answer counts as another setting, so the operator is asked.
    const bool registered = mode.size() > wire::kSettingRegistered && mode[wire::kSettingRegistered] == requested;
    // Declining is no failure: the command still counts as done and is audited.
    if (!registered && !quiet_ && !confirmNextPowerCycle(Wording::Partition)) {
        return 0;
    }
    try {
        IPMIRequester session(sessionSetup());
        OrbLib::ipmiclient::OEMSetPartitionSegmentModeCommand(session).setPartSegmentMode(partitionNumber_, requested);
    } catch (const PException& exception) {
        if (exception.getActionCode() == kActionPartitionRunning) {
            return refuseRunning(exception);
        }
        throw;
    }
    return 0;
}
