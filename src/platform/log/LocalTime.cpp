#include "LocalTime.h"

#include <ctime>

namespace partmode {

std::string LocalTime::now()
{
    const std::time_t seconds = std::time(nullptr);
    std::tm local{};
    localtime_r(&seconds, &local);
    char text[64];
    const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S%z", &local);
    return std::string(text, length);
}

} // namespace partmode
