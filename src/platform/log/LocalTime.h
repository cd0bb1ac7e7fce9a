#pragma once

#include <string>

namespace partmode {

// The current local time as ISO 8601 with its offset, 2026-11-21T14:06:47+0100.
class LocalTime {
public:
    static std::string now();
};

} // namespace partmode
