#include "CommonUtil.h"

#include "Board.h"

#include <cstdio>

unsigned int CommonUtil::getMaxPartitionNum() { return partmode::Board::instance().partitions; }

unsigned int CommonUtil::getAllPartitionNum(bool includeExtended)
{
    const auto& board = partmode::Board::instance();
    return board.partitions + (includeExtended ? board.extendedPartitions : 0U);
}

unsigned int CommonUtil::getMaxUnitNum(COMMON_UNIT_TYPE type)
{
    const auto& board = partmode::Board::instance();
    switch (type) {
    case COMMON_UNIT_SYSTEM_BOARD:
        return board.systemBoards;
    case COMMON_UNIT_CPU:
        return board.cpusPerSystemBoard;
    case COMMON_UNIT_IO_UNIT:
        return board.ioUnits;
    }
    return 0;
}

std::string CommonUtil::getDisplayUnitName(COMMON_UNIT_TYPE type, unsigned int unit)
{
    // The board checks that its unit name holds exactly one %u.
    const std::string format = type == COMMON_UNIT_IO_UNIT         ? partmode::Board::instance().ioUnitName
                               : type == COMMON_UNIT_SYSTEM_BOARD ? std::string("SB#%u")
                                                                  : std::string("CPU#%u");
    char name[128];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(name, sizeof(name), format.c_str(), unit);
#pragma GCC diagnostic pop
    return name;
}

bool CommonUtil::isPPAR(int partition)
{
    return partition >= 0 && static_cast<unsigned int>(partition) < getMaxPartitionNum();
}

bool CommonUtil::isXPAR(int partition, bool includeExtended)
{
    if (!includeExtended || partition < 0) {
        return false;
    }
    const auto number = static_cast<unsigned int>(partition);
    return number >= getMaxPartitionNum() && number < getAllPartitionNum(true);
}
