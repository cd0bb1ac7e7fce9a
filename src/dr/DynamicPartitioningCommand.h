#pragma once

#include "PartitionModeCommand.h"

#include <string>

// What the dynamic reconfiguration commands share: whether the system
// supports dynamic reconfiguration at all.
class DynamicPartitioningCommand : public PartitionModeCommand {
public:
    // False when the system does not support dynamic reconfiguration; that is
    // reported as an invalid parameter on the console and in the trace.
    bool checkDynamicPartitioningCommandExec(IPMIRequester& requester) const;

protected:
    explicit DynamicPartitioningCommand(std::string commandName);
};
