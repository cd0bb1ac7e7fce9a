#pragma once

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace partmode::sim {

// What `partmode-sim serve` is asked for.
struct BmcServerOptions {
    // The LAN interface's UDP port; 0: any free port; absent: no LAN interface.
    std::optional<unsigned int> port;
    // The IPv4 address of this host the LAN interface listens on, or 0.0.0.0.
    std::string address = "127.0.0.1";
    // The TCP port of the system interface for a virtual machine (KCS, codec
    // VM of QEMU's ipmi-bmc-extern); 0: any free port; absent: none.
    std::optional<unsigned int> vmPort;
    std::filesystem::path state;
    std::string user = "admin";
    // Absent: a new random password in a file of the server's own.
    std::optional<std::filesystem::path> passwordFile;
    // Present: the BMC key K_g, kept like the password file.
    std::optional<std::filesystem::path> kgFile;
    std::uint32_t iana = 32473;
    // Present (with a LAN interface): a board file (mode 0600) is written here
    // once the BMC answers: `boardBase` with the firmware object that reaches
    // the BMC.
    std::optional<std::filesystem::path> boardFile;
    nlohmann::ordered_json boardBase = nlohmann::ordered_json::object();
};

// Runs OpenIPMI's ipmi_sim with the firmware simulator module, so the tool
// can reach the simulator over IPMI 2.0 LAN on the address, or from inside a
// virtual machine through its kernel's KCS driver, or both. Refuses a port
// that any program already uses, before ipmi_sim starts, and first removes the
// folders that killed servers of this user left behind. Once every interface
// asked for answers, prints the board's "firmware" object that reaches the
// LAN interface, then the QEMU arguments that connect a machine to the system
// interface and the "firmware" object the machine's board uses, one line
// each; stops ipmi_sim on SIGTERM or SIGINT. Returns the exit status of
// partmode-sim.
int serveBmc(const BmcServerOptions& options);

} // namespace partmode::sim
