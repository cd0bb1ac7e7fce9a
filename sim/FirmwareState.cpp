#include "FirmwareState.h"

#include "OemProtocol.h"
#include "StateError.h"

#include <array>
#include <limits>
#include <string_view>

namespace partmode::sim {
namespace {

using nlohmann::json;

constexpr std::array kFlagKeys{"power_on", "system_status", "extended_partitioning", "reserved_sb"};
constexpr std::array kByteKeys{"dynamic_reconfiguration", "tpm",         "pci_express_mode",
                               "pci_address_mode",        "memory_mode", "node_ids"};
constexpr std::array kTopKeys{"defined_partitions", "exclusive_features", "partitions", "extended_partition_parents",
                              "lan_device_modes",   "server_monitor",     "faults"};
constexpr std::array kFaultKeys{"netfn", "cmd", "partition", "completion_code", "count"};

[[noreturn]] void malformed(const std::string& reason) { throw StateError(StateError::Kind::Malformed, reason); }

template <std::size_t N>
bool isOneOf(const std::array<const char*, N>& keys, std::string_view key)
{
    for (const char* known : keys) {
        if (key == known) {
            return true;
        }
    }
    return false;
}

bool isByte(const json& value)
{
    return value.is_number_integer() && value.get<long long>() >= 0 && value.get<long long>() <= 255;
}

// Request codes of a fault may also be written as "0x30", as `partmode-sim
// show` prints them, so that its output is a state file again.
std::optional<std::uint8_t> codeByte(const json& value)
{
    if (isByte(value)) {
        return value.get<std::uint8_t>();
    }
    if (!value.is_string()) {
        return std::nullopt;
    }
    const auto& text = value.get_ref<const std::string&>();
    if (text.size() < 3 || text.size() > 4 || (text.compare(0, 2, "0x") != 0 && text.compare(0, 2, "0X") != 0) ||
        text.find_first_not_of("0123456789abcdefABCDEF", 2) != std::string::npos) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(std::stoul(text.substr(2), nullptr, 16));
}

void checkByteList(const json& value, const std::string& where)
{
    if (!value.is_array()) {
        malformed("\"" + where + "\" must be a list of bytes");
    }
    for (const auto& item : value) {
        if (!isByte(item)) {
            malformed("\"" + where + "\" must be a list of bytes");
        }
    }
}

// Object keys that are numbers ("0", "12"); the number must fit in a byte.
unsigned int numberKey(const std::string& key, const std::string& where)
{
    if (key.empty() || key.size() > 3 || key.find_first_not_of("0123456789") != std::string::npos ||
        std::stoul(key) > 255) {
        malformed("\"" + where + "\" keys must be numbers from 0 to 255, not \"" + key + "\"");
    }
    return static_cast<unsigned int>(std::stoul(key));
}

void checkNumberMap(const json& document, const char* key)
{
    const auto found = document.find(key);
    if (found == document.end()) {
        return;
    }
    if (!found->is_object()) {
        malformed(std::string("\"") + key + "\" must be an object");
    }
    for (const auto& [name, value] : found->items()) {
        numberKey(name, key);
        if (!isByte(value)) {
            malformed(std::string("\"") + key + "." + name + "\" must be a byte");
        }
    }
}

Bytes toBytes(const json& value)
{
    Bytes bytes;
    bytes.reserve(value.size());
    for (const auto& item : value) {
        bytes.push_back(item.get<std::uint8_t>());
    }
    return bytes;
}

} // namespace

FirmwareState::FirmwareState() : document_(json::object()) {}

FirmwareState::FirmwareState(json document) : document_(std::move(document)) { validate(); }

FirmwareState FirmwareState::defaults(unsigned int partitions)
{
    FirmwareState state;
    json& document = state.document_;
    document["defined_partitions"] = json::array();
    for (unsigned int partition = 0; partition < partitions; ++partition) {
        document["defined_partitions"].push_back(partition);
    }
    document["exclusive_features"] = false;
    document["partitions"] = json::object();
    for (unsigned int partition = 0; partition < partitions; ++partition) {
        document["partitions"][std::to_string(partition)] = state.defaultPartition(partition);
    }
    document["extended_partition_parents"] = json::object();
    document["lan_device_modes"] = json::object();
    document["server_monitor"] = nullptr;
    document["faults"] = json::array();
    return state;
}

bool FirmwareState::isFlagKey(const std::string& key) { return isOneOf(kFlagKeys, key); }

bool FirmwareState::isByteListKey(const std::string& key) { return isOneOf(kByteKeys, key); }

void FirmwareState::validate() const
{
    if (!document_.is_object()) {
        malformed("the state must be a JSON object");
    }
    for (const auto& item : document_.items()) {
        if (!isOneOf(kTopKeys, item.key())) {
            malformed("unknown key \"" + item.key() + "\"");
        }
    }
    if (const auto defined = document_.find("defined_partitions"); defined != document_.end()) {
        checkByteList(*defined, "defined_partitions");
    }
    if (const auto exclusive = document_.find("exclusive_features");
        exclusive != document_.end() && !exclusive->is_boolean()) {
        malformed("\"exclusive_features\" must be true or false");
    }
    if (const auto partitions = document_.find("partitions"); partitions != document_.end()) {
        if (!partitions->is_object()) {
            malformed("\"partitions\" must be an object");
        }
        for (const auto& [name, partition] : partitions->items()) {
            numberKey(name, "partitions");
            const std::string where = "partitions." + name;
            if (!partition.is_object()) {
                malformed("\"" + where + "\" must be an object");
            }
            for (const auto& [key, value] : partition.items()) {
                if (isOneOf(kFlagKeys, key)) {
                    if (!value.is_boolean()) {
                        malformed("\"" + where + "." + key + "\" must be true or false");
                    }
                } else if (isOneOf(kByteKeys, key)) {
                    checkByteList(value, where + "." + key);
                } else {
                    malformed("unknown key \"" + where + "." + key + "\"");
                }
            }
        }
    }
    checkNumberMap(document_, "extended_partition_parents");
    checkNumberMap(document_, "lan_device_modes");
    if (const auto monitor = document_.find("server_monitor"); monitor != document_.end() && !monitor->is_null()) {
        bool valid = monitor->is_array();
        for (const auto& record : valid ? *monitor : json::array()) {
            valid = valid && record.is_array();
            for (const auto& value : record.is_array() ? record : json::array()) {
                valid = valid && value.is_number_integer() &&
                        value.get<long long>() >= std::numeric_limits<std::int32_t>::min() &&
                        value.get<long long>() <= std::numeric_limits<std::int32_t>::max();
            }
        }
        if (!valid) {
            malformed("\"server_monitor\" must be null or a list of lists of 32-bit numbers");
        }
    }
    if (const auto faults = document_.find("faults"); faults != document_.end()) {
        if (!faults->is_array()) {
            malformed("\"faults\" must be a list");
        }
        for (const auto& fault : *faults) {
            if (!fault.is_object()) {
                malformed("each of \"faults\" must be an object");
            }
            for (const auto& [key, value] : fault.items()) {
                if (!isOneOf(kFaultKeys, key)) {
                    malformed("unknown key \"faults." + key + "\"");
                }
                const bool valid = key == "count"       ? value.is_number_unsigned()
                                   : key == "partition" ? isByte(value)
                                                        : codeByte(value).has_value();
                if (!valid) {
                    malformed("\"faults." + key + "\" must be " + (key == "count" ? "a count" : "a byte"));
                }
            }
            for (const char* required : {"netfn", "cmd", "completion_code"}) {
                if (!fault.contains(required)) {
                    malformed(std::string("each of \"faults\" needs \"") + required + "\"");
                }
            }
        }
    }
}

json FirmwareState::defaultPartition(unsigned int partition) const
{
    // One system board and two I/O units per partition unless the state says otherwise.
    const auto firstUnit = static_cast<std::uint8_t>(0x80 + 2 * partition);
    return json{
        {"power_on", false},
        {"system_status", true},
        {"dynamic_reconfiguration", {0, 0}},
        {"extended_partitioning", false},
        {"tpm", {0, 0}},
        {"pci_express_mode", {1, 1}},
        {"pci_address_mode", {1, 1}},
        {"memory_mode", {0, 1, 0, 1, 1, 0}},
        {"node_ids", {static_cast<std::uint8_t>(partition), firstUnit, static_cast<std::uint8_t>(firstUnit + 1)}},
        {"reserved_sb", false}};
}

Bytes FirmwareState::definedPartitions() const
{
    const auto defined = document_.find("defined_partitions");
    return defined != document_.end() ? toBytes(*defined) : Bytes{0, 1, 2, 3};
}

bool FirmwareState::isDefined(unsigned int partition) const
{
    for (const auto number : definedPartitions()) {
        if (number == partition) {
            return true;
        }
    }
    return false;
}

bool FirmwareState::exclusiveFeatures() const { return document_.value("exclusive_features", false); }

void FirmwareState::setDefinedPartitions(const Bytes& partitions) { document_["defined_partitions"] = partitions; }

void FirmwareState::setExclusiveFeatures(bool enabled) { document_["exclusive_features"] = enabled; }

const json* FirmwareState::partitionValue(unsigned int partition, const std::string& key) const
{
    const auto partitions = document_.find("partitions");
    if (partitions == document_.end()) {
        return nullptr;
    }
    const auto entry = partitions->find(std::to_string(partition));
    if (entry == partitions->end()) {
        return nullptr;
    }
    const auto value = entry->find(key);
    return value != entry->end() ? &*value : nullptr;
}

json& FirmwareState::writablePartition(unsigned int partition)
{
    json& partitions = document_["partitions"];
    json& entry = partitions[std::to_string(partition)];
    if (entry.is_null()) {
        entry = json::object();
    }
    return entry;
}

Bytes FirmwareState::partitionBytes(unsigned int partition, const std::string& key) const
{
    if (const json* value = partitionValue(partition, key)) {
        return toBytes(*value);
    }
    return toBytes(defaultPartition(partition).at(key));
}

void FirmwareState::setPartitionBytes(unsigned int partition, const std::string& key, const Bytes& value)
{
    writablePartition(partition)[key] = value;
}

bool FirmwareState::partitionFlag(unsigned int partition, const std::string& key) const
{
    if (const json* value = partitionValue(partition, key)) {
        return value->get<bool>();
    }
    return defaultPartition(partition).at(key).get<bool>();
}

void FirmwareState::setPartitionFlag(unsigned int partition, const std::string& key, bool value)
{
    writablePartition(partition)[key] = value;
}

std::uint8_t FirmwareState::extendedPartitionParent(unsigned int partition) const
{
    const auto parents = document_.find("extended_partition_parents");
    if (parents != document_.end()) {
        if (const auto parent = parents->find(std::to_string(partition)); parent != parents->end()) {
            return parent->get<std::uint8_t>();
        }
    }
    return wire::kNoParentPartition;
}

void FirmwareState::setExtendedPartitionParent(unsigned int partition, std::optional<std::uint8_t> parent)
{
    json& parents = document_["extended_partition_parents"];
    if (parents.is_null()) {
        parents = json::object();
    }
    if (parent) {
        parents[std::to_string(partition)] = *parent;
    } else {
        parents.erase(std::to_string(partition));
    }
}

std::uint8_t FirmwareState::lanDeviceMode(unsigned int unit) const
{
    const auto modes = document_.find("lan_device_modes");
    if (modes != document_.end()) {
        if (const auto mode = modes->find(std::to_string(unit)); mode != modes->end()) {
            return mode->get<std::uint8_t>();
        }
    }
    return 0;
}

void FirmwareState::setLanDeviceMode(unsigned int unit, std::uint8_t mode)
{
    document_["lan_device_modes"][std::to_string(unit)] = mode;
}

std::optional<std::vector<std::vector<std::int32_t>>> FirmwareState::serverMonitor() const
{
    const auto monitor = document_.find("server_monitor");
    if (monitor == document_.end() || monitor->is_null()) {
        return std::nullopt;
    }
    return monitor->get<std::vector<std::vector<std::int32_t>>>();
}

std::vector<Fault> FirmwareState::faults() const
{
    std::vector<Fault> result;
    const auto faults = document_.find("faults");
    if (faults == document_.end()) {
        return result;
    }
    for (const auto& entry : *faults) {
        Fault fault;
        fault.netFn = *codeByte(entry.at("netfn"));
        fault.command = *codeByte(entry.at("cmd"));
        fault.completionCode = *codeByte(entry.at("completion_code"));
        if (entry.contains("partition")) {
            fault.partition = entry.at("partition").get<std::uint8_t>();
        }
        if (entry.contains("count")) {
            fault.count = entry.at("count").get<unsigned int>();
        }
        result.push_back(fault);
    }
    return result;
}

void FirmwareState::setFaults(const std::vector<Fault>& faults)
{
    json list = json::array();
    for (const auto& fault : faults) {
        json entry{{"netfn", fault.netFn}, {"cmd", fault.command}};
        if (fault.partition) {
            entry["partition"] = *fault.partition;
        }
        entry["completion_code"] = fault.completionCode;
        if (fault.count) {
            entry["count"] = *fault.count;
        }
        list.push_back(std::move(entry));
    }
    document_["faults"] = std::move(list);
}

void FirmwareState::powerOn(unsigned int partition)
{
    setPartitionFlag(partition, "power_on", true);
    for (const char* key : {"pci_express_mode", "pci_address_mode", "dynamic_reconfiguration"}) {
        if (auto bytes = partitionBytes(partition, key); bytes.size() >= 2 && bytes[0] != bytes[1]) {
            bytes[0] = bytes[1];
            setPartitionBytes(partition, key, bytes);
        }
    }
    // The memory mode record keeps its registered operation and mirror RAS
    // modes in bytes 4 and 5; they become the current bytes 1 and 2.
    if (auto record = partitionBytes(partition, "memory_mode");
        record.size() >= 6 && (record[1] != record[4] || record[2] != record[5])) {
        record[1] = record[4];
        record[2] = record[5];
        setPartitionBytes(partition, "memory_mode", record);
    }
}

void FirmwareState::powerOff(unsigned int partition) { setPartitionFlag(partition, "power_on", false); }

} // namespace partmode::sim
