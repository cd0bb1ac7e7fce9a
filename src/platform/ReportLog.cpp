#include "ReportLog.h"

#include "AppendFile.h"
#include "Board.h"
#include "LocalTime.h"
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

int llog_putOrbLog(long length, const char* text, unsigned long kind, const char* origin, const char* userName,
                   const char* code)
{
    try {
        const auto& board = partmode::Board::instance();
        std::string body;
        if (text != nullptr && length > 0) {
            body.assign(text, strnlen(text, static_cast<std::size_t>(length)));
        }
        if (board.auditToSyslog) {
            // The text comes last, so it may hold blanks and '=' unquoted.
            const std::string record = "user=" + orEmpty(userName) + " origin=" + orEmpty(origin) +
                                       " kind=" + std::to_string(kind) + " code=" + orEmpty(code) + " text=" + body;
            partmode::SystemLog::write(LOG_AUTHPRIV | LOG_NOTICE, record);
            return 0;
        }
        const nlohmann::ordered_json record{{"time", partmode::LocalTime::now()},
                                            {"user", orEmpty(userName)},
                                            {"origin", orEmpty(origin)},
                                            {"kind", kind},
                                            {"code", orEmpty(code)},
                                            {"text", body}};
        const auto line = record.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + "\n";
        return partmode::AppendFile::append(board.audit, line) ? 0 : -1;
    } catch (const std::exception&) {
        return -1;
    }
}

} // namespace Report
