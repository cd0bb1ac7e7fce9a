#include "RawIpmiFrame.h"

#include "OemRequest.h"

#include <algorithm>

namespace partmode {

RawIpmiFrame::RawIpmiFrame(std::uint8_t netFn, std::uint8_t command, std::uint32_t iana)
    : group_(netFn == wire::kNetFnGroup),
      command_(command), iana_{static_cast<std::uint8_t>(iana & 0xFF), static_cast<std::uint8_t>((iana >> 8) & 0xFF),
                               static_cast<std::uint8_t>((iana >> 16) & 0xFF)}
{
}

std::vector<std::uint8_t> RawIpmiFrame::request(std::span<const std::uint8_t> data) const
{
    std::vector<std::uint8_t> packet;
    packet.reserve(1 + kIanaSize + data.size());
    packet.push_back(command_);
    if (group_) {
        for (const auto byte : iana_) {
            packet.push_back(byte);
        }
    }
    for (const auto byte : data) {
        packet.push_back(byte);
    }
    return packet;
}

std::optional<RawResponse> RawIpmiFrame::answer(std::span<const std::uint8_t> raw, std::string& fault) const
{
    if (raw.size() < 2 || raw[0] != command_) {
        fault = "answer without a completion code";
        return std::nullopt;
    }
    RawResponse response;
    response.completionCode = raw[1];
    auto data = raw.subspan(2);
    if (group_ && response.completionCode == 0) {
        if (data.size() < kIanaSize || !std::equal(std::begin(iana_), std::end(iana_), data.begin())) {
            fault = "answer without the enterprise number of the request";
            return std::nullopt;
        }
        data = data.subspan(kIanaSize);
    }
    response.data.assign(data.begin(), data.end());
    return response;
}

} // namespace partmode
