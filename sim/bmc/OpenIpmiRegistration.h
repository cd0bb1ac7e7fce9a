#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

// The module's only contact with ipmi_sim's handler API. Newer OpenIPMI
// releases add an emu_data_t* first argument to the registration calls; a
// port to them changes OpenIpmiRegistration.cpp alone.
namespace partmode::bmc {

// A request as ipmi_sim hands it over; for network function 0x2E, ipmi_sim
// has already taken the enterprise number off and puts it back in the answer.
struct Request {
    std::uint8_t netFn;
    std::uint8_t command;
    std::span<const std::uint8_t> data;
};

class Responder {
public:
    Responder() = default;
    Responder(const Responder&) = delete;
    Responder& operator=(const Responder&) = delete;
    virtual ~Responder() = default;

    // Writes the completion code and the answer data into `answer` and returns
    // how many bytes it wrote (at least 1, at most answer.size()). Runs inside
    // ipmi_sim's C code, so it must not throw.
    virtual std::size_t respond(const Request& request, std::span<std::uint8_t> answer) noexcept = 0;
};

// `responder` answers the command from now on, in place of any handler
// ipmi_sim had for it. False when ipmi_sim refuses the registration.
bool registerCommand(std::uint8_t netFn, std::uint8_t command, Responder& responder);

// `responder` answers every network function 0x2E request that carries `iana`.
bool registerGroup(std::uint32_t iana, Responder& responder);

} // namespace partmode::bmc
