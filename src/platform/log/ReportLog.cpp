#include "ReportLog.h"

#include "Board.h"
#include "LocalTime.h"
#include "LogDestinations.h"
#include "SystemLog.h"

#include <nlohmann/json.hpp>

#include <syslog.h>

#include <cstring>
#include <exception>
#include <string>

namespace Report {
namespace {

std::string orEmpty(const char* text) { return text != nullptr ? text : ""; }

} // namespace

namespace {

std::string& failureReason()
{
    static std::string reason;
    return reason;
}

} // namespace

const std::string& lastFailure() { return failureReason(); }

int llog_putOrbLog(long length, const char* text, unsigned long kind, const char* origin, const char* userName,
                   const char* code)
{
    try {
        const auto& board = partmode::Board::instance();
        std::string body;
        if (text != nullptr && length > 0) {
            body.assign(text, strnlen(text, static_cast<std::size_t>(length)));
        }
        const bool applied = partmode::LogDestinations::changeRequested();
        if (board.auditToSyslog) {
            // The text comes last, so it may hold blanks and '=' unquoted.
            const std::string record = "user=" + orEmpty(userName) + " origin=" + orEmpty(origin) +
                                       " kind=" + std::to_string(kind) + " code=" + orEmpty(code) +
                                       " applied=" + (applied ? "true" : "false") + " text=" + body;
            partmode::SystemLog::write(LOG_AUTHPRIV | LOG_NOTICE, record);
            return 0;
        }
        const nlohmann::ordered_json record{{"time", partmode::LocalTime::now()},
                                            {"user", orEmpty(userName)},
                                            {"origin", orEmpty(origin)},
                                            {"kind", kind},
                                            {"code", orEmpty(code)},
                                            {"text", body},
                                            {"applied", applied}};
        const auto line = record.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
        failureReason() = partmode::LogDestinations::audit(line);
        return failureReason().empty() ? 0 : -1;
    } catch (const std::exception& error) {
        failureReason() = error.what();
        return -1;
    }
}

} // namespace Report
