#include "UnitTestBoard.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace partmode::test {
namespace {

constexpr const char* kMultiPartitionBoard = R"({
  "partitions": 4,
  "extended_partitions": 2,
  "system_boards": 4,
  "cpus_per_system_board": 2,
  "io_units": 8,
  "firmware": {"transport": "simulator", "state": "firmware.json"},
  "trace": "trace.log",
  "audit": "audit.log"
})";

constexpr const char* kSinglePartitionBoard = R"({
  "partitions": 1,
  "firmware": {"state": "single-firmware.json"},
  "trace": "single-trace.log",
  "audit": "single-audit.log"
})";

void pointBoardAt(const std::filesystem::path& board)
{
    if (::setenv("PARTMODE_BOARD", board.c_str(), 1) != 0) {
        throw std::runtime_error("cannot set PARTMODE_BOARD");
    }
}

// Registered before main() runs; GoogleTest owns and deletes the environment.
[[maybe_unused]] ::testing::Environment* const kRegistered = ::testing::AddGlobalTestEnvironment(new UnitTestBoard);

} // namespace

std::unique_ptr<TemporaryDirectory>& UnitTestBoard::folder()
{
    // Destroyed at exit, so the folder goes away also when a test's child
    // process ends with exit() before TearDown runs.
    static std::unique_ptr<TemporaryDirectory> folder;
    return folder;
}

void UnitTestBoard::SetUp()
{
    folder() = std::make_unique<TemporaryDirectory>();
    folder()->write("board.json", kMultiPartitionBoard);
    folder()->write("single-board.json", kSinglePartitionBoard);
    folder()->write("broken-board.json", "{\"partitions\": 4,");
    pointBoardAt(folder()->path() / "board.json");
}

void UnitTestBoard::TearDown() { folder().reset(); }

void UnitTestBoard::useSinglePartitionBoard() { pointBoardAt(folder()->path() / "single-board.json"); }

std::filesystem::path UnitTestBoard::useBrokenBoard()
{
    auto path = folder()->path() / "broken-board.json";
    pointBoardAt(path);
    return path;
}

} // namespace partmode::test
