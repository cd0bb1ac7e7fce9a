#pragma once

#include "DynamicPartitioningCommand.h"

#include <vector>

// show partition dynamic_reconfiguration PARTITION: prints whether dynamic
// reconfiguration is enabled now and after the partition's next power-on.
class ShowPartitionDynamicPartitioning : public DynamicPartitioningCommand {
public:
    ShowPartitionDynamicPartitioning();

    bool parseCommand(int argc, char** argv) override;
    int execute() override;

    bool getDynamicPartitioningInfo(IPMIRequester& requester);
    void printDynamicPartitioning() const;

private:
    std::vector<unsigned char> drEnables_;
};
