#pragma once

#include <string>

namespace partmode {

// The board's syslog, the destination "syslog" of trace and audit records.
// Records carry the ident partmode and the process id.
class SystemLog {
public:
    // Sends one record with a priority of <syslog.h> (facility | level).
    // Never fails the caller: a record the log does not take is dropped.
    static void write(int priority, const std::string& text);
};

} // namespace partmode
