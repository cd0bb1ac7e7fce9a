#include "ShowPartitionDynamicPartitioning.h"

#include "OEMGetDynamicPartitioningCommand.h"
#include "PartModeUtil.h"

#include <iostream>
#include <sstream>

ShowPartitionDynamicPartitioning::ShowPartitionDynamicPartitioning()
    : DynamicPartitioningCommand("show partition dynamic_reconfiguration")
{
}

bool ShowPartitionDynamicPartitioning::parseCommand(int argc, char** argv)
{
    if (argc < 1) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    appendArguments(argc, argv);
    if (!PartModeUtil::getPPARNumber(argv[0], partitionNumber_)) {
        PartModeUtil::printPartNumInvalid();
        return false;
    }
    if (argc != 1) {
        PartModeUtil::printParameterInvalid();
        return false;
    }
    return true;
}

// The success line is traced before the report, so a byte without a word
// traces after it.
int ShowPartitionDynamicPartitioning::execute()
{
    try {
        IPMIRequester requester(sessionSetup());
        if (const int result = resolveExtendedPartition(requester); result != 0) {
            return result;
        }
        if (!checkDynamicPartitioningCommandExec(requester)) {
            return 1;
        }
        getDynamicPartitioningInfo(requester);
        traceSuccess();
        printDynamicPartitioning();
        return 0;
    } catch (const PException& exception) {
        return reportException(exception);
    }
}

bool ShowPartitionDynamicPartitioning::getDynamicPartitioningInfo(IPMIRequester& requester)
{
    drEnables_.clear();
    OrbLib::ipmiclient::OEMGetDynamicPartitioningCommand command(requester);
    command.getDynamicPartitioningEnables(partitionNumber_, drEnables_);
    return true;
}

void ShowPartitionDynamicPartitioning::printDynamicPartitioning() const
{
    std::ostringstream lines;
    for (std::size_t index = 0; index < drEnables_.size(); ++index) {
        const unsigned char enables = drEnables_[index];
        // "enabled " is padded to the width of "disabled".
        const char* word = enables == 0 ? "disabled" : enables == 1 ? "enabled " : nullptr;
        lines << (index == 0 ? "current" : "setting") << ": " << wordOrUnknown(word, "GetDynamicPartitioningEnables")
              << '\n';
    }
    std::cout << lines.str() << std::flush;
}
