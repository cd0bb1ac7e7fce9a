#include "ShowPartitionPCIExpressMode.h"

#include "OEMGetPartitionPCIExpressModeCommand.h"
#include "PciExpressMode.h"

#include <iostream>
#include <sstream>

ShowPartitionPCIExpressMode::ShowPartitionPCIExpressMode() : PartitionModeCommand("show partition pci_express_mode") {}

bool ShowPartitionPCIExpressMode::parseCommand(int argc, char** argv) { return parsePartitionArgument(argc, argv); }

int ShowPartitionPCIExpressMode::execute() { return executeShowFrame(); }

void ShowPartitionPCIExpressMode::showMode(IPMIRequester& requester)
{
    getPartitionPCIExpressModeInfo(requester);
    printPartitionPCIExpressMode();
}

bool ShowPartitionPCIExpressMode::getPartitionPCIExpressModeInfo(IPMIRequester& requester)
{
    pciExpressModeInfo_.clear();
    OrbLib::ipmiclient::OEMGetPartitionPCIExpressModeCommand command(requester);
    command.getPartPCIExpressMode(partitionNumber_, pciExpressModeInfo_);
    return true;
}

void ShowPartitionPCIExpressMode::printPartitionPCIExpressMode()
{
    // An empty answer is shown like any other unknown value.
    const int mode = pciExpressModeInfo_.empty() ? -1 : pciExpressModeInfo_[0];
    const char* text = wordOrUnknown(PciExpressMode::word(mode), "GetPartitionPCIExpressMode");
    std::ostringstream line;
    line << PciExpressMode::kKeyword << ": " << text << std::endl;
    std::cout << line.str() << std::flush;
}
