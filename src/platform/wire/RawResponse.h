#pragma once

#include <cstdint>
#include <vector>

namespace partmode {

// What the firmware answers to one raw request: the completion code and the
// response data bytes that follow it.
struct RawResponse {
    std::uint8_t completionCode = 0;
    std::vector<std::uint8_t> data;
};

} // namespace partmode
