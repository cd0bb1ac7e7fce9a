#include "ShowPartitionPCIAddressMode.h"

#include "OEMGetPartitionSegmentModeCommand.h"
#include "OemProtocol.h"
#include "PciAddressMode.h"

#include <iostream>
#include <sstream>

ShowPartitionPCIAddressMode::ShowPartitionPCIAddressMode() : PartitionModeCommand("show partition pci_address_mode") {}

bool ShowPartitionPCIAddressMode::parseCommand(int argc, char** argv) { return parsePartitionArgument(argc, argv); }

int ShowPartitionPCIAddressMode::execute() { return executeShowFrame(); }

void ShowPartitionPCIAddressMode::showMode(IPMIRequester& requester)
{
    getPartitionPCIAddressModeInfo(requester);
    printPartitionPCIAddressMode();
}

bool ShowPartitionPCIAddressMode::getPartitionPCIAddressModeInfo(IPMIRequester& requester)
{
    segmentModeInfo_.clear();
    OrbLib::ipmiclient::OEMGetPartitionSegmentModeCommand command(requester);
    command.getPartSegmentMode(partitionNumber_, segmentModeInfo_);
    return true;
}

void ShowPartitionPCIAddressMode::printPartitionPCIAddressMode()
{
    namespace wire = partmode::wire;
    std::ostringstream lines;
    for (const std::size_t index : {wire::kSettingCurrent, wire::kSettingRegistered}) {
        // A byte the answer lacks is shown like any other unknown value.
        const int mode = index < segmentModeInfo_.size() ? segmentModeInfo_[index] : -1;
        lines << (index == wire::kSettingCurrent ? "current" : "setting") << ": "
              << wordOrUnknown(PciAddressMode::word(mode), "GetPartitionPCIAddressMode") << std::endl;
    }
    std::cout << lines.str() << std::flush;
}
