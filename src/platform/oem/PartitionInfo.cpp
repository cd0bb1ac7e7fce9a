#include "PartitionInfo.h"

#include "OemProtocol.h"

#include <algorithm>

namespace OrbLib::IpmiData {

void PartitionInfo::assign(std::span<const std::uint8_t> response)
{
    data_.fill(0);
    std::copy_n(response.begin(), std::min(response.size(), data_.size()), data_.begin());
}

void PartitionInfo::getNodeIds(std::vector<unsigned char>& out) const
{
    namespace wire = partmode::wire;
    const std::size_t count = std::min<std::size_t>(data_[wire::kPartitionInfoNodeCount], wire::kPartitionInfoMaxNodes);
    const auto first = data_.begin() + wire::kPartitionInfoNodeIds;
    out.assign(first, first + static_cast<std::ptrdiff_t>(count));
}

} // namespace OrbLib::IpmiData
