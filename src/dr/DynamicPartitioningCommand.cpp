#include "DynamicPartitioningCommand.h"

#include "PartModeUtil.h"

DynamicPartitioningCommand::DynamicPartitioningCommand(std::string commandName)
    : PartitionModeCommand(std::move(commandName))
{
}

bool DynamicPartitioningCommand::checkDynamicPartitioningCommandExec(IPMIRequester& requester) const
{
    if (PartModeUtil::isDynamicPartitioningSupport(requester)) {
        return true;
    }
    traceDetail(PartModeUtil::printParameterInvalid().c_str());
    return false;
}
