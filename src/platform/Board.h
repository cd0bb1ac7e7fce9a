#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace partmode {

// How the IPMI requester reaches the partition firmware.
struct FirmwareConfig {
    std::string transport = "simulator";
    std::filesystem::path state;
};

// One entry of the board's user database.
struct BoardUser {
    int privilege = 1;
    std::vector<unsigned int> operablePartitions;
};

// The platform's description of the machine: partition and unit counts, the
// user database, how the firmware is reached and where trace and audit go.
// Loaded once per process from PARTMODE_BOARD, /etc/partmode/board.json or the
// built-in default.
class Board {
public:
    static constexpr const char* kSystemBoardPath = "/etc/partmode/board.json";

    // The board of this process. Throws PException (and says why on standard
    // error, once) when the board file cannot be used.
    static const Board& instance();

    // The board a file describes, or the built-in default when `path` is empty.
    // Throws std::runtime_error with the reason.
    static Board load(const std::filesystem::path& path);

    // Where the board of this process comes from: empty for the built-in default.
    static std::filesystem::path locate();

    unsigned int partitions = 4;
    unsigned int extendedPartitions = 0;
    unsigned int systemBoards = 4;
    unsigned int cpusPerSystemBoard = 2;
    unsigned int ioUnits = 8;
    std::string ioUnitName = "IOU#%u";
    // Absent: every user of the machine has privilege 1.
    std::optional<std::map<std::string, BoardUser>> users;
    FirmwareConfig firmware;
    std::filesystem::path trace;
    std::filesystem::path audit;
    std::filesystem::path path; // empty for the built-in default
};

} // namespace partmode
