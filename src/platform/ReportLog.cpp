#include "ReportLog.h"

#include "AppendFile.h"
#include "Board.h"
#include "LocalTime.h"

#include <nlohmann/json.hpp>

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
