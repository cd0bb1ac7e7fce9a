#include "Firmware.h"

#include "CompletionCode.h"
#include "ComponentInfoCollection.h"
#include "OemProtocol.h"
#include "PrimitiveTypeArray.h"

#include <algorithm>
#include <array>
#include <initializer_list>

namespace partmode::sim {
namespace {

using OrbLib::OrbUi::ComponentInfoCollection;
using OrbLib::OrbUi::PrimitiveTypeArray;

RawResponse answer(Bytes data) { return RawResponse{cc::kSuccess, std::move(data)}; }

RawResponse getDefinedPartitions(const Bytes&, FirmwareState& state, bool&)
{
    return answer(state.definedPartitions());
}

RawResponse getPartitionInfo(const Bytes& parameters, FirmwareState& state, bool&)
{
    const unsigned int partition = parameters[0];
    Bytes record(wire::kPartitionInfoSize, 0);
    if (state.partitionFlag(partition, "power_on")) {
        record[wire::kPartitionInfoStatus] |= wire::kPartitionStatusPowerOn;
    }
    const Bytes nodes = state.partitionBytes(partition, "node_ids");
    const std::size_t count = std::min(nodes.size(), wire::kPartitionInfoMaxNodes);
    record[wire::kPartitionInfoNodeCount] = static_cast<std::uint8_t>(count);
    std::copy_n(nodes.begin(), count, record.begin() + wire::kPartitionInfoNodeIds);
    return answer(std::move(record));
}

RawResponse getDynamicPartitioning(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer(state.partitionBytes(parameters[0], "dynamic_reconfiguration"));
}

RawResponse getXPARMode(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer({static_cast<std::uint8_t>(state.partitionFlag(parameters[0], "extended_partitioning") ? 1 : 0)});
}

RawResponse getXPARInfo(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer({state.extendedPartitionParent(parameters[0])});
}

RawResponse getTPMEnables(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer(state.partitionBytes(parameters[0], "tpm"));
}

// One record per defined partition: the partition number, then 1 when its
// system status allows a change, else 0. The state may replace the records.
// The request names the piece of the serialised collection it wants.
RawResponse getSystemStatus(const Bytes& parameters, FirmwareState& state, bool&)
{
    std::vector<std::vector<std::int32_t>> records;
    if (auto given = state.serverMonitor()) {
        records = std::move(*given);
    } else {
        for (const auto partition : state.definedPartitions()) {
            records.push_back({partition, state.partitionFlag(partition, "system_status") ? 1 : 0});
        }
    }
    ComponentInfoCollection<PrimitiveTypeArray<long>> collection;
    for (const auto& values : records) {
        collection.add(std::make_unique<PrimitiveTypeArray<long>>(std::vector<long>(values.begin(), values.end())));
    }
    Bytes data(collection.getSerializedSize());
    collection.getSerialized(data.data(), static_cast<unsigned int>(data.size()));
    if (data.size() > 0xFFFF) {
        return RawResponse{cc::kCannotReturnRequestedBytes, {}};
    }
    const std::size_t offset = (std::size_t{parameters[0]} << 8) | parameters[1];
    if (offset > data.size()) {
        return RawResponse{cc::kParameterOutOfRange, {}};
    }
    const std::size_t length = std::min<std::size_t>(parameters[2], data.size() - offset);
    Bytes piece{static_cast<std::uint8_t>(data.size() >> 8), static_cast<std::uint8_t>(data.size() & 0xFF)};
    piece.insert(piece.end(), data.begin() + static_cast<std::ptrdiff_t>(offset),
                 data.begin() + static_cast<std::ptrdiff_t>(offset + length));
    return answer(std::move(piece));
}

RawResponse getPCIExpressMode(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer(state.partitionBytes(parameters[0], "pci_express_mode"));
}

// The PCI Express mode changes only while the partition is off, and then both
// the current and the registered byte take the new mode.
RawResponse setPCIExpressMode(const Bytes& parameters, FirmwareState& state, bool& changed)
{
    const unsigned int partition = parameters[0];
    if (state.partitionFlag(partition, "power_on")) {
        return RawResponse{cc::kNotSupportedInPresentState, {}};
    }
    state.setPartitionBytes(partition, "pci_express_mode", {parameters[1], parameters[1]});
    changed = true;
    return answer({});
}

// Writes `values` into the byte list `key` of a partition from index `first`
// on; a shorter list grows with zeros.
void storeBytes(FirmwareState& state, unsigned int partition, const char* key, std::size_t first,
                std::initializer_list<std::uint8_t> values)
{
    Bytes bytes = state.partitionBytes(partition, key);
    if (bytes.size() < first + values.size()) {
        bytes.resize(first + values.size(), 0);
    }
    std::copy(values.begin(), values.end(), bytes.begin() + static_cast<std::ptrdiff_t>(first));
    state.setPartitionBytes(partition, key, bytes);
}

// Registers the setting of a powered-off partition; the current value (byte
// 0) follows at the next power-on.
RawResponse registerSetting(const char* key, const Bytes& parameters, FirmwareState& state, bool& changed)
{
    const unsigned int partition = parameters[0];
    if (state.partitionFlag(partition, "power_on")) {
        return RawResponse{cc::kNotSupportedInPresentState, {}};
    }
    storeBytes(state, partition, key, wire::kSettingRegistered, {parameters[1]});
    changed = true;
    return answer({});
}

RawResponse getPCIAddressMode(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer(state.partitionBytes(parameters[0], "pci_address_mode"));
}

RawResponse setPCIAddressMode(const Bytes& parameters, FirmwareState& state, bool& changed)
{
    return registerSetting("pci_address_mode", parameters, state, changed);
}

RawResponse setDynamicPartitioning(const Bytes& parameters, FirmwareState& state, bool& changed)
{
    return registerSetting("dynamic_reconfiguration", parameters, state, changed);
}

RawResponse getLanDeviceMode(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer({state.lanDeviceMode(parameters[0])});
}

RawResponse setLanDeviceMode(const Bytes& parameters, FirmwareState& state, bool& changed)
{
    state.setLanDeviceMode(parameters[0], parameters[1]);
    changed = true;
    return answer({});
}

RawResponse getSystemCapabilities(const Bytes&, FirmwareState& state, bool&)
{
    Bytes flags(wire::kSystemCapabilitiesSize, 0);
    flags[wire::kSystemCapabilitiesExclusive] = state.exclusiveFeatures() ? 1 : 0;
    return answer(std::move(flags));
}

RawResponse getPartitionMirrorMode(const Bytes& parameters, FirmwareState& state, bool&)
{
    return answer(state.partitionBytes(parameters[0], "memory_mode"));
}

// Registers the memory modes of a powered-off partition. With a Reserved SB the
// change needs the operator's acceptance (the last request byte).
RawResponse setPartitionMirrorMode(const Bytes& parameters, FirmwareState& state, bool& changed)
{
    const unsigned int partition = parameters[0];
    if (state.partitionFlag(partition, "power_on")) {
        return RawResponse{cc::kNotSupportedInPresentState, {}};
    }
    if (state.partitionFlag(partition, "reserved_sb") && parameters[4] == 0) {
        return RawResponse{cc::kReservedSb, {}};
    }
    static_assert(wire::kMirrorModeSettingOperation == wire::kMirrorModeEnable + 1 &&
                  wire::kMirrorModeSettingMirrorRas == wire::kMirrorModeEnable + 2);
    storeBytes(state, partition, "memory_mode", wire::kMirrorModeEnable, {parameters[1], parameters[2], parameters[3]});
    changed = true;
    return answer({});
}

constexpr std::array kRoutes{
    Firmware::Route{&wire::kGetDefinedPartitions, &getDefinedPartitions},
    Firmware::Route{&wire::kGetPartitionInfo, &getPartitionInfo},
    Firmware::Route{&wire::kGetDynamicPartitioning, &getDynamicPartitioning},
    Firmware::Route{&wire::kGetXPARMode, &getXPARMode},
    Firmware::Route{&wire::kGetXPARInfo, &getXPARInfo},
    Firmware::Route{&wire::kGetTPMEnables, &getTPMEnables},
    Firmware::Route{&wire::kGetSystemStatus, &getSystemStatus},
    Firmware::Route{&wire::kGetPCIExpressMode, &getPCIExpressMode},
    Firmware::Route{&wire::kSetPCIExpressMode, &setPCIExpressMode},
    Firmware::Route{&wire::kGetPCIAddressMode, &getPCIAddressMode},
    Firmware::Route{&wire::kSetPCIAddressMode, &setPCIAddressMode},
    Firmware::Route{&wire::kGetLanDeviceMode, &getLanDeviceMode},
    Firmware::Route{&wire::kSetLanDeviceMode, &setLanDeviceMode},
    Firmware::Route{&wire::kSetDynamicPartitioning, &setDynamicPartitioning},
    Firmware::Route{&wire::kGetSystemCapabilities, &getSystemCapabilities},
    Firmware::Route{&wire::kGetPartitionMirrorMode, &getPartitionMirrorMode},
    Firmware::Route{&wire::kSetPartitionMirrorMode, &setPartitionMirrorMode},
};

bool targetsPartition(const wire::OemRequest& request)
{
    return request.target == wire::Target::Partition || request.target == wire::Target::ExtendedPartition;
}

// Answers with an injected completion code when a fault matches the request.
// A fault with a count is counted down and removed when it reaches 0.
bool takeFault(const wire::OemRequest& request, const Bytes& parameters, FirmwareState& state, bool& changed,
               std::uint8_t& completionCode)
{
    auto faults = state.faults();
    bool modified = std::erase_if(faults, [](const Fault& fault) { return fault.count && *fault.count == 0; }) > 0;
    const auto match = std::find_if(faults.begin(), faults.end(), [&](const Fault& fault) {
        return fault.netFn == request.netFn && fault.command == request.command &&
               (!fault.partition || (targetsPartition(request) && parameters[0] == *fault.partition));
    });
    const bool fired = match != faults.end();
    if (fired) {
        completionCode = match->completionCode;
        if (match->count) {
            if (--*match->count == 0) {
                faults.erase(match);
            }
            modified = true;
        }
    }
    if (modified) {
        state.setFaults(faults);
        changed = true;
    }
    return fired;
}

} // namespace

Firmware::Firmware(std::filesystem::path statePath) : store_(std::move(statePath)) {}

std::span<const Firmware::Route> Firmware::routes() { return kRoutes; }

const Firmware::Route* Firmware::findRoute(std::uint8_t netFn, std::uint8_t command)
{
    const auto route = std::find_if(kRoutes.begin(), kRoutes.end(), [&](const Route& candidate) {
        return candidate.request->netFn == netFn && candidate.request->command == command;
    });
    return route != kRoutes.end() ? &*route : nullptr;
}

RawResponse Firmware::handle(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> request) const
{
    const Route* route = findRoute(netFn, command);
    if (route == nullptr) {
        return RawResponse{cc::kInvalidCommand, {}};
    }
    Bytes parameters;
    if (!route->request->decode(request, parameters)) {
        return RawResponse{cc::kRequestDataLengthInvalid, {}};
    }
    RawResponse response;
    store_.transact([&](FirmwareState& state) {
        bool changed = false;
        std::uint8_t faultCode = 0;
        if (takeFault(*route->request, parameters, state, changed, faultCode)) {
            response = RawResponse{faultCode, {}};
        } else if (route->request->target == wire::Target::Partition && !state.isDefined(parameters[0])) {
            response = RawResponse{cc::kInvalidDataField, {}};
        } else {
            response = route->handler(parameters, state, changed);
        }
        return changed;
    });
    return response;
}

} // namespace partmode::sim
