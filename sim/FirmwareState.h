#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace partmode::sim {

using Bytes = std::vector<std::uint8_t>;

// An injected answer: requests that match answer with the completion code.
struct Fault {
    std::uint8_t netFn = 0;
    std::uint8_t command = 0;
    std::optional<std::uint8_t> partition;
    std::uint8_t completionCode = 0;
    std::optional<unsigned int> count;
};

// The firmware's state as kept in the state file. Keys the file leaves out
// take their defaults; setters write only the keys they change, so the file
// keeps its own shape. The constructor checks every key it knows and throws
// StateError(Malformed) for a value of the wrong type.
class FirmwareState {
public:
    FirmwareState();
    explicit FirmwareState(nlohmann::json document);

    // The state a new firmware starts with, every default written out, for a
    // board of `partitions` physical partitions.
    static FirmwareState defaults(unsigned int partitions = 4);

    // The per-partition keys that hold true or false, and those that hold
    // byte lists.
    [[nodiscard]] static bool isFlagKey(const std::string& key);
    [[nodiscard]] static bool isByteListKey(const std::string& key);

    [[nodiscard]] const nlohmann::json& document() const { return document_; }

    [[nodiscard]] Bytes definedPartitions() const;
    [[nodiscard]] bool isDefined(unsigned int partition) const;
    [[nodiscard]] bool exclusiveFeatures() const;
    void setDefinedPartitions(const Bytes& partitions);
    void setExclusiveFeatures(bool enabled);

    // Byte lists of a partition ("pci_express_mode", "memory_mode", ...).
    [[nodiscard]] Bytes partitionBytes(unsigned int partition, const std::string& key) const;
    void setPartitionBytes(unsigned int partition, const std::string& key, const Bytes& value);
    // Flags of a partition ("power_on", "system_status", ...).
    [[nodiscard]] bool partitionFlag(unsigned int partition, const std::string& key) const;
    void setPartitionFlag(unsigned int partition, const std::string& key, bool value);

    // Parent of an extended partition, 255 when it has none.
    [[nodiscard]] std::uint8_t extendedPartitionParent(unsigned int partition) const;
    // Without a parent the extended partition's entry is removed.
    void setExtendedPartitionParent(unsigned int partition, std::optional<std::uint8_t> parent);
    [[nodiscard]] std::uint8_t lanDeviceMode(unsigned int unit) const;
    void setLanDeviceMode(unsigned int unit, std::uint8_t mode);

    // Records that replace the computed system status answer, when given.
    [[nodiscard]] std::optional<std::vector<std::vector<std::int32_t>>> serverMonitor() const;

    [[nodiscard]] std::vector<Fault> faults() const;
    void setFaults(const std::vector<Fault>& faults);

    // A power-on makes the registered settings (the second byte of each
    // setting list) the current ones, as a real power cycle does.
    void powerOn(unsigned int partition);
    void powerOff(unsigned int partition);

private:
    [[nodiscard]] nlohmann::json defaultPartition(unsigned int partition) const;
    [[nodiscard]] const nlohmann::json* partitionValue(unsigned int partition, const std::string& key) const;
    nlohmann::json& writablePartition(unsigned int partition);
    void validate() const;

    nlohmann::json document_;
};

} // namespace partmode::sim
