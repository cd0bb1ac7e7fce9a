#pragma once

#include "FirmwareState.h"
#include "OemRequest.h"
#include "RawResponse.h"
#include "StateStore.h"

#include <cstdint>
#include <filesystem>
#include <span>
#include <vector>

namespace partmode::sim {

// The simulated partition firmware: answers the OEM requests from the state
// file. One table row per request; unknown requests answer 0xC1 and requests
// of the wrong length 0xC7. State file failures throw StateError.
class Firmware {
public:
    explicit Firmware(std::filesystem::path statePath);

    RawResponse handle(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> request) const;

    // A handler reads the decoded parameters and the state; it sets `changed`
    // when it modified the state.
    using Handler = RawResponse (*)(const Bytes& parameters, FirmwareState& state, bool& changed);

    struct Route {
        const wire::OemRequest* request;
        Handler handler;
    };

    static std::span<const Route> routes();
    // The route of a request, or nullptr when the firmware does not answer it.
    static const Route* findRoute(std::uint8_t netFn, std::uint8_t command);

private:
    StateStore store_;
};

} // namespace partmode::sim
