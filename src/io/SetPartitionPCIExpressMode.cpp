#include "SetPartitionPCIExpressMode.h"

#include "OEMGetPartitionPCIExpressModeCommand.h"
#include "OEMSetPartitionPCIExpressModeCommand.h"
#include "PException.h"
#include "PartModeUtil.h"
#include "PciExpressMode.h"

#include <cstdio>
#include <iostream>
#include <sstream>
#include <vector>

namespace {

constexpr std::uint8_t kActionReservedSB = 0x80;

} // namespace

SetPartitionPCIExpressMode::SetPartitionPCIExpressMode() : PartitionModeCommand("set partition pci_express_mode") {}

bool SetPartitionPCIExpressMode::parseCommand(int argc, char** argv)
{
    appendArguments(argc, argv);
    if (argc != 2) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    if (!PartModeUtil::getPPARNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    if (!getPCIExpressModeString(argv[1])) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return true;
}

bool SetPartitionPCIExpressMode::getPCIExpressModeString(const char* word)
{
    if (PartModeUtil::checkKeyword(word, PciExpressMode::word(PciExpressMode::kFlexible))) {
        pciExpressMode_ = PciExpressMode::kFlexible;
        return true;
    }
    if (PartModeUtil::checkKeyword(word, PciExpressMode::word(PciExpressMode::kFixed))) {
        pciExpressMode_ = PciExpressMode::kFixed;
        return true;
    }
    return false;
}

int SetPartitionPCIExpressMode::execute() { return executeSetFrame(); }

void SetPartitionPCIExpressMode::formatAuditText(char* auditText) const
{
    std::snprintf(auditText, kTextBufferSize, "%s",
                  pciExpressMode_ == PciExpressMode::kFlexible ? "PCI Express Mode=Flexible"
                                                               : "PCI Express Mode=Fixed");
}

int SetPartitionPCIExpressMode::changeMode(IPMIRequester& requester)
{
    if (const int result = checkDynamicReconfiguration(requester); result != 0) {
        return result;
    }
    if (!checkPartitionPowerStatus(requester)) {
        return 51;
    }
    if (const int result = setPCIExpressModeInfo(requester); result != 0) {
        return result;
    }
    if (!printPartitionPCIExpressMode(requester)) {
        return 2;
    }
    return 0;
}

bool SetPartitionPCIExpressMode::checkPartitionPowerStatus(IPMIRequester& requester)
{
    return checkPowerOff(requester) == 0;
}

int SetPartitionPCIExpressMode::setPCIExpressModeInfo(IPMIRequester& requester)
{
    try {
        OrbLib::ipmiclient::OEMSetPartitionPCIExpressModeCommand command(requester);
        command.setPartPCIExpressMode(partitionNumber_, static_cast<unsigned char>(pciExpressMode_));
        return 0;
    } catch (const PException& exception) {
        if (exception.getActionCode() == kActionPartitionRunning) {
            return refuseRunning(exception);
        }
        if (exception.getActionCode() == kActionReservedSB) {
            PartModeUtil::printErrMsgConsole("Unable to change the mode because of the Reserved SB setting.");
            traceFailure("%s (PException)", exception.getExceptionDetail(), exception.getActionCode());
            noteReason(exception);
            return 53;
        }
        throw;
    }
}

bool SetPartitionPCIExpressMode::printPartitionPCIExpressMode(IPMIRequester& requester)
{
    std::vector<unsigned char> mode;
    OrbLib::ipmiclient::OEMGetPartitionPCIExpressModeCommand command(requester);
    command.getPartPCIExpressMode(partitionNumber_, mode);
    const auto requested = static_cast<unsigned char>(pciExpressMode_);
    // A short answer cannot confirm the change.
    const int current = mode.size() > 0 ? mode[0] : -1;
    const int setting = mode.size() > 1 ? mode[1] : -1;
    if (requested != current) {
        printFailure();
        traceFailure("%s (the currentMode is different from the specifiedMode)", requested, current);
        return false;
    }
    if (requested != setting) {
        printFailure();
        traceFailure("%s (the settingMode is different from the specifiedMode)", requested, setting);
        return false;
    }
    std::ostringstream line;
    line << PciExpressMode::kKeyword << ": " << PciExpressMode::word(pciExpressMode_) << std::endl;
    std::cout << line.str() << std::flush;
    return true;
}
