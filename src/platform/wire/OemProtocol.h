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
inline constexpr OemRequest kGetXPARInfo{kNetFnOem, 0xF4, Target::ExtendedPartition, 1, "Get Extended Partition Info"};
inline constexpr OemRequest kGetTPMEnables{kNetFnGroup, 0xF5, Target::Partition, 1, "Get TPM Enables"};
// Reads the serialised system status collection piece by piece, as one IPMI
// message may carry no more than 32 data bytes: offset (most significant byte
// first) and the number of bytes wanted; the answer is the collection's total
// size (most significant byte first) and the bytes from the offset on.
inline constexpr OemRequest kGetSystemStatus{kNetFnOem, 0xD0, Target::None, 3, "Get System Status Sensors"};
inline constexpr OemRequest kGetPCIExpressMode{kNetFnOem, 0xB3, Target::Partition, 1, "Get PCI Express Mode"};
inline constexpr OemRequest kSetPCIExpressMode{kNetFnOem,      0xB2, Target::Partition, 2, "Set PCI Express Mode",
                                               Effect::Changes};
inline constexpr OemRequest kGetPCIAddressMode{kNetFnOem, 0x81, Target::Partition, 1, "Get PCI Address Mode"};
// Changes only the registered setting; the current mode follows at the next power-on.
inline constexpr OemRequest kSetPCIAddressMode{kNetFnOem,      0x80, Target::Partition, 2, "Set PCI Address Mode",
                                               Effect::Changes};
inline constexpr OemRequest kGetLanDeviceMode{kNetFnOem, 0x62, Target::Unit, 1, "Get LAN Device Mode"};
inline constexpr OemRequest kSetLanDeviceMode{kNetFnOem, 0x61, Target::Unit, 2, "Set LAN Device Mode", Effect::Changes};
// Changes only the registered setting; the current state follows at the next power-on.
inline constexpr OemRequest kSetDynamicPartitioning{
    kNetFnOem, 0x8D, Target::Partition, 2, "Set Dynamic Partitioning Enables", Effect::Changes};
inline constexpr OemRequest kGetSystemCapabilities{kNetFnOem, 0xD1, Target::None, 0, "Get System Capabilities"};
inline constexpr OemRequest kGetPartitionMirrorMode{kNetFnOem, 0x7F, Target::Partition, 1, "Get Partition Mirror Mode"};
// Partition, mode enable, memory operation mode, mirror RAS mode, and 1 when
// the operator accepted a Reserved SB (0 on the first attempt).
inline constexpr OemRequest kSetPartitionMirrorMode{
    kNetFnOem, 0x7E, Target::Partition, 5, "Set Partition Mirror Mode", Effect::Changes};

// A piece of the system status collection: 2 bytes of total size, then at
// most kSystemStatusPiece bytes, so that an answer fits the 36 bytes of an
// IPMI message with its completion code.
inline constexpr std::size_t kSystemStatusTotalSize = 2;
inline constexpr std::uint8_t kSystemStatusPiece = 32;

// Partition information record: status byte, node count, node ids.
inline constexpr std::size_t kPartitionInfoSize = 14;
inline constexpr std::size_t kPartitionInfoStatus = 0;
inline constexpr std::size_t kPartitionInfoNodeCount = 1;
inline constexpr std::size_t kPartitionInfoNodeIds = 2;
inline constexpr std::size_t kPartitionInfoMaxNodes = kPartitionInfoSize - kPartitionInfoNodeIds;
inline constexpr std::uint8_t kPartitionStatusPowerOn = 0x02;

// Partition mirror mode record: the current memory operation and mirror RAS
// modes, then the registered mode enable, memory operation and mirror RAS
// modes that take effect at the next power-on.
inline constexpr std::size_t kMirrorModeRecordSize = 6;
inline constexpr std::size_t kMirrorModeCurrentOperation = 1;
inline constexpr std::size_t kMirrorModeCurrentMirrorRas = 2;
inline constexpr std::size_t kMirrorModeEnable = 3;
inline constexpr std::size_t kMirrorModeSettingOperation = 4;
inline constexpr std::size_t kMirrorModeSettingMirrorRas = 5;

// Settings that take effect at the next power-on (PCI address mode, dynamic
// reconfiguration enables) answer the current value, then the registered one.
inline constexpr std::size_t kSettingCurrent = 0;
inline constexpr std::size_t kSettingRegistered = 1;

// Node id of an I/O unit: top three bits 100, the unit number in the low three.
inline constexpr std::uint8_t kNodeKindMask = 0xE0;
inline constexpr std::uint8_t kNodeKindIoUnit = 0x80;
inline constexpr std::uint8_t kNodeUnitMask = 0x07;

// LAN device mode byte of an I/O unit.
inline constexpr std::uint8_t kLanDeviceDisabled = 0x10;
inline constexpr std::uint8_t kLanWakeOnLanDisabled = 0x01;

// System capabilities answer: a reserved flag byte (0), then 1 when exclusive
// features are enabled on the system.
inline constexpr std::size_t kSystemCapabilitiesSize = 2;
inline constexpr std::size_t kSystemCapabilitiesExclusive = 1;

// Answer to an extended-partition info request for a partition without parent.
inline constexpr std::uint8_t kNoParentPartition = 255;

} // namespace partmode::wire
