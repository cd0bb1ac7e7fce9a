#include "OpenIpmiRegistration.h"

extern "C" {
#include <OpenIPMI/mcserv.h>
}

#include <algorithm>

namespace partmode::bmc {
namespace {

// ipmi_sim gives the handler an answer buffer of *answerLength bytes. The
// enterprise number that ipmi_sim puts back into a 0x2E answer takes room in
// it as well.
std::size_t answerRoom(const msg_t& message, unsigned int answerLength)
{
    constexpr unsigned int kIanaSize = 3;
    if (message.netfn == 0x2E) {
        return answerLength > kIanaSize ? answerLength - kIanaSize : 1;
    }
    return answerLength;
}

extern "C" void handle(lmc_data_t*, msg_t* message, unsigned char* answer, unsigned int* answerLength, void* context)
{
    auto& responder = *static_cast<Responder*>(context);
    const Request request{message->netfn, message->cmd,
                          std::span<const std::uint8_t>(message->data, message->data != nullptr ? message->len : 0)};
    const std::size_t room = std::max<std::size_t>(answerRoom(*message, *answerLength), 1);
    *answerLength = static_cast<unsigned int>(responder.respond(request, std::span<std::uint8_t>(answer, room)));
}

} // namespace

bool registerCommand(std::uint8_t netFn, std::uint8_t command, Responder& responder)
{
    return ipmi_emu_register_cmd_handler(netFn, command, &handle, &responder) == 0;
}

bool registerGroup(std::uint32_t iana, Responder& responder)
{
    return ipmi_emu_register_iana_handler(iana, &handle, &responder) == 0;
}

} // namespace partmode::bmc
