#include "SystemLog.h"

#include <syslog.h>

namespace partmode {

void SystemLog::write(int priority, const std::string& text)
{
    // Opened once; every record names its own facility in its priority.
    static const bool opened = [] {
        ::openlog("partmode", LOG_PID, LOG_USER);
        return true;
    }();
    static_cast<void>(opened);
    ::syslog(priority, "%s", text.c_str());
}

} // namespace partmode
