#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

namespace OrbLib::IpmiData {

// The firmware's information record of one partition: a status byte, the
// node count and the partition's node ids.
class PartitionInfo {
public:
    static constexpr std::size_t kSize = 14;

    PartitionInfo() = default;
    virtual ~PartitionInfo() = default;
    PartitionInfo(const PartitionInfo&) = default;
    PartitionInfo& operator=(const PartitionInfo&) = default;

    [[nodiscard]] std::array<std::uint8_t, kSize>& data() { return data_; }
    [[nodiscard]] const std::array<std::uint8_t, kSize>& data() const { return data_; }

    // Replaces the record with a response; a short response leaves zeros behind.
    void assign(std::span<const std::uint8_t> response);

    // Replaces `out` with the node ids the record lists.
    void getNodeIds(std::vector<unsigned char>& out) const;

private:
    std::array<std::uint8_t, kSize> data_{};
};

} // namespace OrbLib::IpmiData
