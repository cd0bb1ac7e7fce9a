#include "ServerMonitor.h"

#include "IPMIClientCommand.h"
#include "IPMIRequester.h"
#include "OemProtocol.h"
#include "PException.h"
#include "PlatformError.h"
#include "UICommand.h"

#include <optional>
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

    // The whole serialised answer, read piece by piece. A size that changes
    // between pieces means the answer changed while it was being read.
    std::vector<std::uint8_t> fetch()
    {
        std::vector<std::uint8_t> whole;
        std::optional<std::size_t> total;
        do {
            const auto offset = whole.size();
            const auto piece = send(layout_, {static_cast<std::uint8_t>(offset >> 8),
                                              static_cast<std::uint8_t>(offset & 0xFF),
                                              partmode::wire::kSystemStatusPiece});
            if (piece.size() < partmode::wire::kSystemStatusTotalSize) {
                refuse(partmode::error::kActionMalformed, "answer without its size");
            }
            const std::size_t size = (std::size_t{piece[0]} << 8) | piece[1];
            const auto bytes = piece.size() - partmode::wire::kSystemStatusTotalSize;
            if ((total && *total != size) || offset + bytes > size || (bytes == 0 && offset < size)) {
                refuse(partmode::error::kActionMalformed, "pieces of the answer do not fit together");
            }
            total = size;
            whole.insert(whole.end(), piece.begin() + partmode::wire::kSystemStatusTotalSize, piece.end());
        } while (whole.size() < *total);
        return whole;
    }

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
