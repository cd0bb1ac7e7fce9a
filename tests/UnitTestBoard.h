#pragma once

#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>

namespace partmode::test {

// The board the unit tests run on. The platform loads its board once per
// process, on the first call that needs it, so PARTMODE_BOARD is pointed at
// the multi-partition board before any test runs. A test that needs the
// single-partition board switches to it inside a child process that has not
// loaded a board yet (see useSinglePartitionBoard).
//
// Multi-partition board: 4 physical partitions (0..3), 2 extended partitions
// (4 and 5), 4 system boards, 8 I/O units. Firmware state, trace and audit
// files live in a temporary folder that is removed when the process ends.
class UnitTestBoard : public ::testing::Environment {
public:
    static constexpr unsigned int kPartitions = 4;
    static constexpr unsigned int kExtendedPartitions = 2;
    static constexpr unsigned int kSystemBoards = 4;
    static constexpr unsigned int kIoUnits = 8;

    void SetUp() override;
    void TearDown() override;

    // Points PARTMODE_BOARD at a board with one partition. Only useful in a
    // process that has not loaded its board yet.
    static void useSinglePartitionBoard();
    // Points PARTMODE_BOARD at a file that is not valid JSON; returns its path.
    static std::filesystem::path useBrokenBoard();

private:
    static std::unique_ptr<TemporaryDirectory>& folder();
};

} // namespace partmode::test
