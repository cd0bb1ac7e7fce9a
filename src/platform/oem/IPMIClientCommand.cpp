#include "IPMIClientCommand.h"

#include "PException.h"
#include "PlatformError.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace OrbLib::ipmiclient {

IPMIClientCommand::IPMIClientCommand(IPMIRequester& requester, std::uint8_t header, std::uint8_t netFn,
                                     std::uint8_t command)
    : requester_(&requester), header_(header), netFn_(netFn), command_(command)
{
}

unsigned char IPMIClientCommand::getRsSlaveAddr() const { return requester_->getConnectSlaveAddr(); }

void IPMIClientCommand::checkCompletionCode(unsigned short command, unsigned char completionCode, const char* text)
{
    if (completionCode == 0) {
        return;
    }
    throw PException(1, 0x52, command, completionCode, partmode::error::kDetailCompletionCode, 20029,
                     {std::string(text != nullptr ? text : ""), static_cast<long>(completionCode)});
}

std::vector<std::uint8_t> IPMIClientCommand::send(const partmode::wire::OemRequest& layout,
                                                  std::initializer_list<std::uint8_t> parameters)
{
    if (layout.netFn != netFn_ || layout.command != command_) {
        throw std::logic_error("OEM request sent through an object of another request");
    }
    const auto request = layout.encode(parameters);
    auto response = requester_->sendRequest(netFn_, command_, request, layout.effect);
    checkCompletionCode(command_, response.completionCode, layout.name);
    responseLength_ = static_cast<std::uint32_t>(std::min(response.data.size(), data_.size()));
    std::copy_n(response.data.begin(), responseLength_, data_.begin());
    return std::move(response.data);
}

std::uint8_t IPMIClientCommand::sendForByte(const partmode::wire::OemRequest& layout,
                                            std::initializer_list<std::uint8_t> parameters)
{
    const auto response = send(layout, parameters);
    if (response.empty()) {
        throw PException(1, 0x52, command_, partmode::error::kActionMalformed, partmode::error::kDetailResponse,
                         partmode::error::kMessagePlatformFailure,
                         {std::string(layout.name), std::string("empty response")});
    }
    return response[0];
}

} // namespace OrbLib::ipmiclient
