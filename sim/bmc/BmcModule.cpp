// The firmware simulator as a module of OpenIPMI's ipmi_sim, so that the tool
// reaches it over IPMI 2.0 LAN as it reaches real firmware. Every OEM request
// goes to the same firmware model and state file as the embedded simulator:
// same completion codes, same injected faults, same locking.
//
// ipmi_sim loads the module from its configuration file:
//   loadlib "/path/partmode-bmc.so" "state=/path/firmware.json [iana=32473]"

#include "OpenIpmiRegistration.h"

#include "CompletionCode.h"
#include "Firmware.h"
#include "OemProtocol.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <optional>
#include <sstream>
#include <string>

namespace partmode::bmc {
namespace {

class FirmwareResponder : public Responder {
public:
    explicit FirmwareResponder(std::filesystem::path statePath) : firmware_(std::move(statePath)) {}

    std::size_t respond(const Request& request, std::span<std::uint8_t> answer) noexcept override
    {
        RawResponse response;
        try {
            response = firmware_.handle(request.netFn, request.command, request.data);
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "partmode-bmc: %s\n", failure.what());
            response = RawResponse{cc::kUnspecifiedError, {}};
        } catch (...) {
            response = RawResponse{cc::kUnspecifiedError, {}};
        }
        if (1 + response.data.size() > answer.size()) {
            answer[0] = cc::kCannotReturnRequestedBytes;
            return 1;
        }
        answer[0] = response.completionCode;
        std::copy(response.data.begin(), response.data.end(), answer.begin() + 1);
        return 1 + response.data.size();
    }

private:
    sim::Firmware firmware_;
};

struct Options {
    std::filesystem::path state;
    std::uint32_t iana = 32473;
};

// "state=FILE" and, optionally, "iana=NUMBER", separated by blanks.
std::optional<Options> parseOptions(const char* text)
{
    Options options;
    std::istringstream words(text != nullptr ? text : "");
    std::string word;
    while (words >> word) {
        if (word.rfind("state=", 0) == 0 && word.size() > 6) {
            options.state = word.substr(6);
        } else if (word.rfind("iana=", 0) == 0) {
            char* end = nullptr;
            const unsigned long iana = std::strtoul(word.c_str() + 5, &end, 0);
            if (*end != '\0' || end == word.c_str() + 5 || iana > 0xFFFFFF) {
                return std::nullopt;
            }
            options.iana = static_cast<std::uint32_t>(iana);
        } else {
            return std::nullopt;
        }
    }
    if (options.state.empty()) {
        return std::nullopt;
    }
    return options;
}

std::unique_ptr<FirmwareResponder> responder;

int initialise(const char* optionText)
{
    const auto options = parseOptions(optionText);
    if (!options) {
        std::fprintf(stderr, "partmode-bmc: options must be \"state=FILE [iana=NUMBER]\", not \"%s\"\n",
                     optionText != nullptr ? optionText : "");
        return 1;
    }
    responder = std::make_unique<FirmwareResponder>(options->state);
    bool groupRegistered = false;
    for (const auto& route : sim::Firmware::routes()) {
        bool registered = true;
        if (route.request->netFn == wire::kNetFnGroup) {
            registered = groupRegistered || registerGroup(options->iana, *responder);
            groupRegistered = registered;
        } else {
            registered = registerCommand(route.request->netFn, route.request->command, *responder);
        }
        if (!registered) {
            std::fprintf(stderr, "partmode-bmc: ipmi_sim refused a handler for %s\n", route.request->name);
            return 1;
        }
    }
    return 0;
}

} // namespace
} // namespace partmode::bmc

// The entry points ipmi_sim looks up with dlsym; it declares them in no
// header, and the module needs nothing of the system data it passes.
extern "C" __attribute__((visibility("default"))) int ipmi_sim_module_print_version(void* /*sys*/, char* /*options*/)
{
    std::printf("partmode firmware simulator module\n");
    return 0;
}

extern "C" __attribute__((visibility("default"))) int ipmi_sim_module_init(void* /*sys*/, const char* options)
{
    try {
        return partmode::bmc::initialise(options);
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "partmode-bmc: %s\n", failure.what());
        return 1;
    }
}
