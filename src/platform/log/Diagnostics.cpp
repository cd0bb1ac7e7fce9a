#include "Diagnostics.h"

#include "Board.h"
#include "PException.h"
#include "PlatformError.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <variant>

namespace partmode {
namespace {

std::string codes(int first, int second) { return " (" + std::to_string(first) + ", " + std::to_string(second) + ")"; }

// The words of an exception detail and its action code, with the numbers the
// trace line shows.
std::string explainCodes(int detail, int action)
{
    const std::string words = Diagnostics::detailWords(detail);
    if (words.empty()) {
        return "";
    }
    return words + ": " + Diagnostics::actionWords(detail, action) + codes(detail, action);
}

} // namespace

std::string Diagnostics::detailWords(int detail)
{
    switch (detail) {
    case error::kDetailCompletionCode:
        return "the firmware refused the request";
    case error::kDetailCollection:
        return "the system status answer does not fit together";
    case error::kDetailBoard:
        return "the board file cannot be used";
    case error::kDetailUser:
        return "the user is not in the board's user database";
    case error::kDetailFirmwareState:
        return "the firmware simulator's state file cannot be used";
    case error::kDetailTransport:
        return "the board names a firmware transport this build does not have";
    case error::kDetailResponse:
        return "the firmware's answer is malformed";
    case error::kDetailSession:
        return "the IPMI session failed";
    case error::kDetailPasswordFile:
        return "the BMC's password or key file cannot be used";
    case error::kDetailAudit:
        return "the audit file cannot be written; nothing was sent";
    default:
        return "";
    }
}

std::string Diagnostics::actionWords(int detail, int action)
{
    if (detail == error::kDetailCompletionCode) {
        std::array<char, 32> code{};
        std::snprintf(code.data(), code.size(), "completion code 0x%02X", static_cast<unsigned int>(action & 0xFF));
        return code.data();
    }
    switch (action) {
    case error::kActionUnreadable:
        return "missing or unreadable";
    case error::kActionMalformed:
        return "malformed";
    case error::kActionRefused:
        return "refused";
    case error::kActionIo:
        return "locking, writing or renaming failed";
    case error::kActionTimeout:
        return "no answer within the session timeout";
    case error::kActionUnreachable:
        return "the host or device cannot be reached or opened";
    case error::kActionInsecure:
        return "a symbolic link, not a regular file, too large, or not private enough";
    case error::kActionSessionOther:
        return "another failure of the IPMI library";
    case error::kActionLockTimeout:
        return "another process held the lock for longer than 10 seconds";
    default:
        return "action code " + std::to_string(action);
    }
}

std::string Diagnostics::explain(const std::string& commandName, const std::string& detail, int first, int second)
{
    std::string text = detail;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    // "COMMAND (why)" becomes "why"; a detail of its own stays whole.
    if (text.starts_with(commandName + " (") && text.ends_with(')')) {
        text = text.substr(commandName.size() + 2, text.size() - commandName.size() - 3);
    } else if (text == commandName) {
        text.clear();
    }
    if (const std::string words = explainCodes(first, second); !words.empty()) {
        return text.empty() || text == "PException" ? words : text + "; " + words;
    }
    if (first != 0 || second != 0) {
        text += codes(first, second);
    }
    return text;
}

std::string Diagnostics::explain(const PException& exception)
{
    const auto& all = exception.getArguments();
    const bool hasText = std::any_of(all.begin(), all.end(), [](const PException::Argument& argument) {
        return std::holds_alternative<std::string>(argument);
    });
    const std::string arguments = hasText ? exception.what() : "";
    const std::string words = explainCodes(exception.getExceptionDetail(), exception.getActionCode());
    if (arguments.empty()) {
        return words;
    }
    return words.empty() ? arguments : arguments + "; " + words;
}

void Diagnostics::report(const std::string& reason)
{
    if (reason.empty()) {
        return;
    }
    try {
        if (!Board::instance().diagnosticsToStderr) {
            return;
        }
    } catch (const PException&) {
        // A board that cannot be read asks for nothing; it has said why already.
        return;
    }
    std::cerr << "partmode: reason: " << reason << std::endl;
}

} // namespace partmode
