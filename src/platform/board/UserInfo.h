#pragma once

namespace OrbLib::OrbUi {

// A user of the board's user database: privilege and operable partitions.
class UserInfo {
public:
    static constexpr int kPartitionOperator = 5;

    // Looks the user up; throws PException when the user is not in the database.
    void loadUserInfo(const char* userName);

    [[nodiscard]] int getPrivilege() const { return privilege_; }
    // Bit n set: the user may operate partition n.
    [[nodiscard]] unsigned long getOperablePartition() const { return operablePartitions_; }

private:
    int privilege_ = 0;
    unsigned long operablePartitions_ = 0;
};

} // namespace OrbLib::OrbUi
