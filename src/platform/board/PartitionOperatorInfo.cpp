#include "PartitionOperatorInfo.h"

#include <climits>

namespace OrbLib::OrbUi {

bool PartitionOperatorInfo::isOperablePartition(unsigned long operablePartitions, int partition) const
{
    constexpr int kBits = static_cast<int>(sizeof(operablePartitions) * CHAR_BIT);
    return partition >= 0 && partition < kBits && ((operablePartitions >> partition) & 1UL) != 0;
}

} // namespace OrbLib::OrbUi
