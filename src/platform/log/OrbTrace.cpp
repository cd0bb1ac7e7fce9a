#include "OrbTrace.h"

#include "Board.h"
#include "LocalTime.h"
#include "LogDestinations.h"
#include "SystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <exception>
#include <string>

namespace trace {

OrbTrace::OrbTrace(std::uint8_t facility, std::uint8_t component, std::uint16_t size)
    : facility_(facility), component_(component), size_(size)
{
}

void OrbTrace::putLog(std::uint8_t /*level*/, const char* text) const
{
    try {
        const auto& board = partmode::Board::instance();
        std::string record;
        for (const char* next = text != nullptr ? text : ""; *next != '\0'; ++next) {
            if (*next == '\n') {
                record += "\\n";
            } else {
                record += *next;
            }
        }
        if (board.traceToSyslog) {
            partmode::SystemLog::write(LOG_USER | LOG_DEBUG, record);
            return;
        }
        const std::string line =
            partmode::LocalTime::now() + " partmode[" + std::to_string(::getpid()) + "]: " + record + '\n';
        partmode::LogDestinations::trace(line);
    } catch (const std::exception&) {
        // Without a usable board there is nowhere to trace to.
    }
}

} // namespace trace
