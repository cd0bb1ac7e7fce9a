#include "IPMIRequester.h"

#include "LogDestinations.h"

namespace OrbLib::ipmiclient {

void IPMIRequester::createSetupInfo(IPMIClientID client, _RMCPP_SESS_SETUP_INFO& setup, IPMIServerID server)
{
    setup.client = client;
    setup.server = server;
    setup.firmware = partmode::Board::instance().firmware;
}

IPMIRequester::IPMIRequester(const _RMCPP_SESS_SETUP_INFO& setup)
    : transport_(partmode::FirmwareTransport::open(setup.firmware))
{
}

IPMIRequester::~IPMIRequester() = default;

partmode::RawResponse IPMIRequester::sendRequest(std::uint8_t netFn, std::uint8_t command,
                                                 std::span<const std::uint8_t> data, partmode::wire::Effect effect)
{
    if (effect == partmode::wire::Effect::Changes) {
        partmode::LogDestinations::prepareForChange();
        partmode::LogDestinations::noteChangeRequest();
    }
    return transport_->request(netFn, command, data);
}

} // namespace OrbLib::ipmiclient
