#pragma once

#include "IPMIClientCommand.h"

#include <vector>

namespace OrbLib::ipmiclient {

// Reads the list of defined partitions, one byte per partition number.
class OEMGetDefinedPartitionsCommand : public IPMIClientCommand {
public:
    explicit OEMGetDefinedPartitionsCommand(IPMIRequester& requester);

    void getDefinedPartitions(std::vector<unsigned char>& out);
};

} // namespace OrbLib::ipmiclient
