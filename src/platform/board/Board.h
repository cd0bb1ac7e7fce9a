#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace partmode {

// How the IPMI requester reaches the partition firmware: the embedded
// simulator ("simulator"), a BMC over IPMI 2.0 LAN ("lan") or the BMC of this
// board through the kernel's IPMI device ("inband").
struct FirmwareConfig {
    std::string transport = "simulator";
    std::filesystem::path state;

    std::string host = "127.0.0.1";
    unsigned int port = 623;
    std::string username = "admin";
    std::filesystem::path passwordFile; // relative paths are taken from the board's folder
    // The BMC key K_g, kept like the password; empty when the BMC has none.
    std::filesystem::path kgFile;
    std::string privilege = "admin";
    // 17 (HMAC-SHA256, AES-CBC-128): current BMCs no longer offer the SHA-1 suites.
    unsigned int cipherSuite = 17;
    unsigned int sessionTimeoutMs = 5000;
    unsigned int retransmissionTimeoutMs = 500;
    std::vector<std::string> workarounds;

    std::string driver = "openipmi";
    std::filesystem::path device = "/dev/ipmi0";

    // Enterprise number that leads every request of network function 0x2E;
    // 32473 is the one reserved for documentation.
    std::uint32_t iana = 32473;
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

    // Where the board of this process comes from: empty for the built-in
    // default. A privileged run reads only the installation's board.
    static std::filesystem::path locate();
    // The board of the installation this executable belongs to:
    // /etc/partmode/board.json for the prefix /usr, else PREFIX/etc/partmode.
    static std::filesystem::path installedBoardPath();

    // The privileges the user database accepts; 5 is the partition operator.
    static constexpr int kLowestPrivilege = 1;
    static constexpr int kHighestPrivilege = 15;

    unsigned int partitions = 4;
    unsigned int extendedPartitions = 0;
    unsigned int systemBoards = 4;
    unsigned int cpusPerSystemBoard = 2;
    unsigned int ioUnits = 8;
    std::string ioUnitName = "IOU#%u";
    // Absent: every user of the machine has privilege 1.
    std::optional<std::map<std::string, BoardUser>> users;
    FirmwareConfig firmware;
    // Where trace lines and audit records go: a file, or syslog when the
    // board says "syslog" (the path is then empty).
    static constexpr const char* kSyslog = "syslog";
    std::filesystem::path trace;
    std::filesystem::path audit;
    bool traceToSyslog = false;
    bool auditToSyslog = false;
    // "diagnostics": "stderr": the reason of a failure also on standard error.
    bool diagnosticsToStderr = false;
    std::filesystem::path path; // empty for the built-in default
};

} // namespace partmode
