#pragma once

namespace OrbLib::OrbUi {

// Answers whether a partition operator's partitions include a partition.
class PartitionOperatorInfo {
public:
    [[nodiscard]] bool isOperablePartition(unsigned long operablePartitions, int partition) const;
};

} // namespace OrbLib::OrbUi
