#include "SystemInterfaceProbe.h"

#include "UniqueFd.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

namespace partmode::sim {
namespace {

using namespace std::chrono_literals;

// QEMU's ipmi-bmc-extern speaks OpenIPMI's "VM" codec: a message is a
// sequence number, the network function and LUN, the command, the data and a
// checksum that makes the bytes add up to zero, then 0xA0; a control command
// ends in 0xA1; 0xA0, 0xA1 and 0xAA inside are sent as 0xAA and the byte with
// bit 4 set.
constexpr std::uint8_t kVmMessageEnd = 0xA0;
constexpr std::uint8_t kVmCommandEnd = 0xA1;
constexpr std::uint8_t kVmEscape = 0xAA;
constexpr auto kProbeTimeout = 500ms;

} // namespace

std::vector<std::uint8_t> SystemInterfaceProbe::frame(const std::vector<std::uint8_t>& message)
{
    std::vector<std::uint8_t> bytes;
    std::uint8_t sum = 0;
    const auto put = [&bytes](std::uint8_t byte) {
        if (byte == kVmMessageEnd || byte == kVmCommandEnd || byte == kVmEscape) {
            bytes.push_back(kVmEscape);
            byte |= 0x10;
        }
        bytes.push_back(byte);
    };
    for (const auto byte : message) {
        put(byte);
        sum = static_cast<std::uint8_t>(sum + byte);
    }
    put(static_cast<std::uint8_t>(-sum));
    bytes.push_back(kVmMessageEnd);
    return bytes;
}

bool SystemInterfaceProbe::answers(unsigned int port)
{
    const UniqueFd fd(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    if (!fd || ::connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        return false;
    }
    constexpr std::uint8_t kSequence = 0x5A;
    constexpr std::uint8_t kAppNetFn = 0x06;
    constexpr std::uint8_t kGetDeviceId = 0x01;
    const auto request = frame({kSequence, static_cast<std::uint8_t>(kAppNetFn << 2), kGetDeviceId});
    if (::send(fd.get(), request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + kProbeTimeout;
    std::vector<std::uint8_t> message;
    bool escaped = false;
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        pollfd wait{fd.get(), POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left.count())) <= 0) {
            return false;
        }
        std::array<std::uint8_t, 256> buffer{};
        const auto got = ::recv(fd.get(), buffer.data(), buffer.size(), 0);
        if (got <= 0) {
            return false;
        }
        for (ssize_t i = 0; i < got; ++i) {
            const std::uint8_t byte = buffer[static_cast<std::size_t>(i)];
            if (byte == kVmCommandEnd) {
                message.clear();
            } else if (byte == kVmMessageEnd) {
                // sequence, network function, command, completion code, ..., checksum
                if (message.size() >= 5 && message[0] == kSequence && message[2] == kGetDeviceId) {
                    return message[3] == 0x00;
                }
                message.clear();
            } else if (byte == kVmEscape) {
                escaped = true;
            } else {
                message.push_back(escaped ? static_cast<std::uint8_t>(byte & ~0x10) : byte);
                escaped = false;
            }
        }
    }
}

} // namespace partmode::sim
