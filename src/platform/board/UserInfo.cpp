#include "UserInfo.h"

#include "Board.h"
#include "PException.h"
#include "PlatformError.h"

#include <string>

namespace OrbLib::OrbUi {

void UserInfo::loadUserInfo(const char* userName)
{
    const auto& board = partmode::Board::instance();
    const std::string name = userName != nullptr ? userName : "";
    if (!board.users) {
        // A board without a user database lets every user of the machine in.
        privilege_ = 1;
        operablePartitions_ = 0;
        return;
    }
    const auto found = board.users->find(name);
    if (found == board.users->end()) {
        throw PException(1, 0x50, 0x0200, partmode::error::kActionRefused, partmode::error::kDetailUser,
                         partmode::error::kMessagePlatformFailure, {name, std::string("not in the user database")});
    }
    privilege_ = found->second.privilege;
    operablePartitions_ = 0;
    for (const unsigned int partition : found->second.operablePartitions) {
        operablePartitions_ |= 1UL << partition;
    }
}

} // namespace OrbLib::OrbUi
