#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace partmode::sim {

// What `partmode-sim serve` is asked for.
struct BmcServerOptions {
    unsigned int port = 0; // 0: any free port
    std::filesystem::path state;
    std::string user = "admin";
    // Absent: a new random password in a file of the server's own.
    std::optional<std::filesystem::path> passwordFile;
    std::uint32_t iana = 32473;
};

// Runs OpenIPMI's ipmi_sim on 127.0.0.1 with the firmware simulator module,
// so the tool can reach the simulator over IPMI 2.0 LAN. Prints the board's
// "firmware" object that reaches it, as one line, once the BMC answers; stops
// ipmi_sim on SIGTERM or SIGINT. Returns the exit status of partmode-sim.
int serveBmc(const BmcServerOptions& options);

} // namespace partmode::sim
