#pragma once

#include <string>

// Unit types of the platform.
enum COMMON_UNIT_TYPE : unsigned int {
    COMMON_UNIT_SYSTEM_BOARD = 1,
    COMMON_UNIT_CPU = 2,
    COMMON_UNIT_IO_UNIT = 6,
};

// Partition and unit counts of the machine, from the board.
class CommonUtil {
public:
    // Number of physical partitions; 1 on a single-partition system.
    static unsigned int getMaxPartitionNum();
    // Physical and extended partitions together.
    static unsigned int getAllPartitionNum(bool includeExtended);
    static unsigned int getMaxUnitNum(COMMON_UNIT_TYPE type);
    static std::string getDisplayUnitName(COMMON_UNIT_TYPE type, unsigned int unit);
    static bool isPPAR(int partition);
    static bool isXPAR(int partition, bool includeExtended);
};
