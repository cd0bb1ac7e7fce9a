#include "MessageCatalogue.h"

#include <cstdarg>
#include <cstdio>

namespace {

struct CatalogueEntry {
    int id;
    const char* text;
};

// Every text starts with its id, so a trace or audit line names its message.
constexpr CatalogueEntry kCatalogue[] = {
    {10046, "10046: Command completed: %s"},
    {10047, "10047: Command failed: %s (%d, %d)"},
    {10082, "10082: Partition#%u: %s"},
    {10083, "10083: Partition#%u: %s failed"},
    {10088, "10088: System: %s"},
    {20003, "20003: %s failed"},
    {20052, "20052: %s returned an unexpected value"},
};

} // namespace

const char* lmsg_getmsg(int id, char* buffer, ...)
{
    const char* format = nullptr;
    for (const auto& entry : kCatalogue) {
        if (entry.id == id) {
            format = entry.text;
        }
    }
    if (format == nullptr) {
        std::snprintf(buffer, kMessageBufferSize, "%d: no message text", id);
        return buffer;
    }
    va_list arguments;
    va_start(arguments, buffer);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(buffer, kMessageBufferSize, format, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    return buffer;
}
