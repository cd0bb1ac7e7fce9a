#pragma once

#include "Board.h"
#include "FirmwareTransport.h"
#include "OemRequest.h"
#include "RawResponse.h"

#include <cstdint>
#include <memory>
#include <span>

namespace OrbLib::ipmiclient {

using IPMIClientID = int;
using IPMIServerID = int;

// Everything a session needs to reach the firmware.
struct _RMCPP_SESS_SETUP_INFO {
    IPMIClientID client = 0;
    IPMIServerID server = 0;
    partmode::FirmwareConfig firmware;
};

// One session with the partition firmware: opened by the constructor, closed
// by the destructor.
class IPMIRequester {
public:
    // Fills `setup` from the board; throws PException when the board is unusable.
    static void createSetupInfo(IPMIClientID client, _RMCPP_SESS_SETUP_INFO& setup, IPMIServerID server);

    explicit IPMIRequester(const _RMCPP_SESS_SETUP_INFO& setup);
    IPMIRequester(const IPMIRequester&) = delete;
    IPMIRequester& operator=(const IPMIRequester&) = delete;
    ~IPMIRequester();

    // The responder's slave address: the board management controller.
    [[nodiscard]] unsigned char getConnectSlaveAddr() const { return 0x20; }

    // Sends one raw request; a failure of the medium throws PException. A
    // request that changes something is sent only when the audit trail can
    // record it.
    partmode::RawResponse sendRequest(std::uint8_t netFn, std::uint8_t command, std::span<const std::uint8_t> data,
                                      partmode::wire::Effect effect = partmode::wire::Effect::Reads);

private:
    std::unique_ptr<partmode::FirmwareTransport> transport_;
};

} // namespace OrbLib::ipmiclient
