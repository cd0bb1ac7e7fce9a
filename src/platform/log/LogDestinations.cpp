#include "LogDestinations.h"

#include "AppendFile.h"
#include "Board.h"
#include "CheckedFile.h"
#include "MessageCatalogue.h"
#include "PException.h"
#include "PlatformError.h"

#include <memory>

namespace partmode {
namespace {

// A destination file, opened on first use; the reason stays when it cannot be.
struct Destination {
    std::unique_ptr<AppendFile> file;
    std::string failure;
    bool tried = false;
    std::uint8_t action = error::kActionIo;

    AppendFile* open(const std::filesystem::path& path)
    {
        if (!tried) {
            tried = true;
            try {
                file = std::make_unique<AppendFile>(path);
            } catch (const CheckedFile::Refused& refused) {
                failure = path.string() + ": " + refused.what();
                using Kind = CheckedFile::Refused::Kind;
                action = refused.kind() == Kind::Missing || refused.kind() == Kind::Unreadable
                             ? error::kActionUnreadable
                             : error::kActionInsecure;
            }
        }
        return file.get();
    }
};

struct State {
    Destination trace;
    Destination audit;
    bool changeRequested = false;
};

State& state()
{
    static State instance;
    return instance;
}

} // namespace

void LogDestinations::prepareForChange()
{
    const Board& board = Board::instance();
    loadCatalogue();
    if (!board.traceToSyslog) {
        state().trace.open(board.trace);
    }
    if (board.auditToSyslog) {
        return;
    }
    auto& audit = state().audit;
    if (audit.open(board.audit) == nullptr) {
        throw PException(1, 0x52, 0, audit.action, error::kDetailAudit, error::kMessagePlatformFailure,
                         {audit.failure});
    }
}

void LogDestinations::trace(const std::string& line)
{
    if (AppendFile* file = state().trace.open(Board::instance().trace); file != nullptr) {
        static_cast<void>(file->append(line));
    }
}

std::string LogDestinations::audit(const std::string& record)
{
    auto& audit = state().audit;
    AppendFile* file = audit.open(Board::instance().audit);
    if (file == nullptr) {
        return audit.failure;
    }
    return file->append(record);
}

void LogDestinations::noteChangeRequest() { state().changeRequested = true; }

bool LogDestinations::changeRequested() { return state().changeRequested; }

} // namespace partmode
