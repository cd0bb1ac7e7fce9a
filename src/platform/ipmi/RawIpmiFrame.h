#pragma once

#include "RawResponse.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace partmode {

// One request as libfreeipmi's ipmi_cmd_raw takes it and its answer as
// ipmi_cmd_raw gives it back: the command byte first, then (answer only) the
// completion code. Network function 0x2E carries the 3-byte IANA enterprise
// number, least significant byte first, before the data, both ways.
class RawIpmiFrame {
public:
    static constexpr std::size_t kIanaSize = 3;

    RawIpmiFrame(std::uint8_t netFn, std::uint8_t command, std::uint32_t iana);

    [[nodiscard]] std::vector<std::uint8_t> request(std::span<const std::uint8_t> data) const;

    // The completion code and the data after it; nullopt, with the reason in
    // `fault`, for an answer shorter than its completion code, an answer to
    // another command, or a successful 0x2E answer without the request's
    // enterprise number. The data of a non-zero completion code are passed on
    // as they came.
    [[nodiscard]] std::optional<RawResponse> answer(std::span<const std::uint8_t> raw, std::string& fault) const;

private:
    bool group_;
    std::uint8_t command_;
    std::uint8_t iana_[kIanaSize];
};

} // namespace partmode
