#include "ServerMonitor.h"

#include "IPMIClientCommand.h"
#include "IPMIRequester.h"
#include "PException.h"
#include "PlatformError.h"
#include "UICommand.h"

#include <string>
#include <vector>

namespace OrbLib::OrbUi {
namespace {

[[noreturn]] void refuse(std::uint8_t action, const std::string& reason)
{
    throw PException(1, 0x50, 0x0300, action, partmode::error::kDetailResponse,
                     partmode::error::kMessagePlatformFailure, {std::string("ServerMonitor::execute"), reason});
}

// The firmware request that carries a server monitor request.
class MonitorRequest : public ipmiclient::IPMIClientCommand {
public:
    MonitorRequest(ipmiclient::IPMIRequester& requester, const partmode::wire::OemRequest& layout)
        : IPMIClientCommand(requester, partmode::wire::kOemHeader, layout.netFn, layout.command), layout_(layout)
    {
    }

    std::vector<std::uint8_t> fetch() { return send(layout_, {}); }

private:
    const partmode::wire::OemRequest& layout_;
};

} // namespace

void ServerMonitor::execute(SerializableObject* request, SerializableObject* response)
{
    const auto* command = dynamic_cast<const UICommand*>(request);
    if (command == nullptr || response == nullptr) {
        refuse(partmode::error::kActionRefused, "not a server monitor request");
    }
    ipmiclient::_RMCPP_SESS_SETUP_INFO setup;
    ipmiclient::IPMIRequester::createSetupInfo(0, setup, 0);
    ipmiclient::IPMIRequester requester(setup);
    MonitorRequest monitorRequest(requester, command->request());
    const auto answer = monitorRequest.fetch();
    if (!response->setSerialized(answer.data(), static_cast<unsigned int>(answer.size()))) {
        refuse(partmode::error::kActionMalformed, "malformed answer");
    }
}

} // namespace OrbLib::OrbUi
