#pragma once

#include <cstdint>
#include <vector>

namespace partmode::sim {

// Asks ipmi_sim's system interface for a virtual machine (the TCP side of
// QEMU's ipmi-bmc-extern device, OpenIPMI's codec "VM") whether the BMC
// answers. The kernel's KCS probe gives up for good when its first request
// finds no BMC, so a machine must not boot before this holds.
class SystemInterfaceProbe {
public:
    // True once a Get Device ID on 127.0.0.1:port is answered with success.
    static bool answers(unsigned int port);

    // One message as the codec frames it.
    static std::vector<std::uint8_t> frame(const std::vector<std::uint8_t>& message);
};

} // namespace partmode::sim
