#pragma once

#include "OemRequest.h"

#include <cstddef>

// Every OEM request the tool sends, with its network function, command code and
// request layout. docs/protocol.md describes the same table with the responses.
namespace partmode::wire {

inline constexpr OemRequest kGetDefinedPartitions{kNetFnOem, 0x70, Target::None, 0, "Get Defined Partitions"};
inline constexpr OemRequest kGetPartitionInfo{kNetFnOem, 0x71, Target::Partition, 1, "Get Partition Info"};
inline constexpr OemRequest kGetDynamicPartitioning{kNetFnOem, 0x8E, Target::Partition, 1,
                                                    "Get Dynamic Partitioning Enables"};
inline constexpr OemRequest kGetXPARMode{kNetFnOem, 0xF1, Target::Partition, 1, "Get Extended Partition Mode"};
inline constexpr OemRequest kGetXPARInfo{kNetFnOem, 0xF4, Target::ExtendedPartition, 1,
                                         "Get Extended Partition Info"};
inline constexpr OemRequest kGetTPMEnables{kNetFnGroup, 0xF5, Target::Partition, 1, "Get TPM Enables"};
inline constexpr OemRequest kGetSystemStatus{kNetFnOem, 0xD0, Target::None, 0, "Get System Status Sensors"};
inline constexpr OemRequest kGetPCIExpressMode{kNetFnOem, 0xB3, Target::Partition, 1, "Get PCI Express Mode"};
inline constexpr OemRequest kSetPCIExpressMode{kNetFnOem, 0xB2, Target::Partition, 2, "Set PCI Express Mode"};

// Partition information record: status byte, node count, node ids.
inline constexpr std::size_t kPartitionInfoSize = 14;
inline constexpr std::size_t kPartitionInfoStatus = 0;
inline constexpr std::size_t kPartitionInfoNodeCount = 1;
inline constexpr std::size_t kPartitionInfoNodeIds = 2;
inline constexpr std::size_t kPartitionInfoMaxNodes = kPartitionInfoSize - kPartitionInfoNodeIds;
inline constexpr std::uint8_t kPartitionStatusPowerOn = 0x02;

// Answer to an extended-partition info request for a partition without parent.
inline constexpr std::uint8_t kNoParentPartition = 255;

} // namespace partmode::wire
