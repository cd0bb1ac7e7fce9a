#pragma once

#include "DynamicPartitioningCommand.h"

// set partition dynamic_reconfiguration PARTITION enable|disable [quiet]:
// registers dynamic reconfiguration of a powered-off partition for its next
// power-on. The change, platform exceptions and the refusals for authority,
// support and a running partition are audited.
class SetPartitionDynamicPartitioning : public DynamicPartitioningCommand {
public:
    SetPartitionDynamicPartitioning();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getDynamicPartitioningString(const char* word);
    // False when the operator declined; nothing is sent then.
    bool setDynamicPartitioningInfo(IPMIRequester& requester);

private:
    // Each returns 0 or the exit status and has written its console message
    // and trace line.
    int checkExclusiveFeatures(IPMIRequester& requester);
    int checkExtendedPartitioning(IPMIRequester& requester);
    int checkIoModes(IPMIRequester& requester);
    int handleException(const PException& exception, const LoginUser& user, const char* auditText);

    int drMode_ = 0;
    bool quiet_ = false;
};
