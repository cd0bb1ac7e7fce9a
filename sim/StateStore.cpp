#include "StateStore.h"

#include "CheckedFile.h"
#include "FileLock.h"
#include "StateError.h"
#include "UniqueFd.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace partmode::sim {
namespace {

std::string describe(const std::string& what, const std::filesystem::path& path, int error)
{
    return what + " " + path.string() + ": " + std::strerror(error);
}

[[noreturn]] void ioFailure(const std::string& what, const std::filesystem::path& path, int error)
{
    throw StateError(StateError::Kind::Io, describe(what, path, error));
}

// The state file and its companion files: STATE.lock, which is never
// replaced, and STATE.new, the name under which a new state is linked into the
// folder before it is renamed over the state file.
std::filesystem::path companion(const std::filesystem::path& statePath, const char* suffix)
{
    std::filesystem::path path = statePath;
    path += suffix;
    return path;
}

const CheckedFile::Rules kStateRules{CheckedFile::kMiB, false};

// Holds the exclusive lock of a state file for one access. A process killed
// between linking a new state and renaming it leaves STATE.new behind; the
// next holder of the lock removes it.
class StateLock {
public:
    explicit StateLock(const std::filesystem::path& statePath)
    {
        const auto lockPath = companion(statePath, ".lock");
        std::error_code ignored;
        std::filesystem::create_directories(statePath.parent_path().empty() ? "." : statePath.parent_path(), ignored);
        try {
            // Others cannot open the lock, so they cannot hold it either.
            fd_ = CheckedFile::open(lockPath, O_RDWR, {}, 0600);
        } catch (const CheckedFile::Refused& refused) {
            throw StateError(StateError::Kind::Io, "cannot open " + lockPath.string() + ": " + refused.what());
        }
        lock_ = std::make_unique<FileLock>(fd_.get());
        if (!lock_->held()) {
            throw StateError(lock_->timedOut() ? StateError::Kind::Busy : StateError::Kind::Io,
                             "cannot lock " + lockPath.string() + ": " + lock_->failure());
        }
        if (::unlink(companion(statePath, ".new").c_str()) != 0 && errno != ENOENT) {
            ioFailure("cannot remove", companion(statePath, ".new"), errno);
        }
    }
    // Closing the descriptor releases the lock.

private:
    UniqueFd fd_;
    std::unique_ptr<FileLock> lock_;
};

bool readFile(const std::filesystem::path& path, std::string& content)
{
    try {
        content = CheckedFile::read(path, kStateRules);
        return true;
    } catch (const CheckedFile::Refused& refused) {
        if (refused.kind() == CheckedFile::Refused::Kind::Missing) {
            return false;
        }
        throw StateError(StateError::Kind::Unreadable, "cannot read " + path.string() + ": " + refused.what());
    }
}

void writeAll(int fd, const std::string& text, const std::filesystem::path& path)
{
    std::size_t written = 0;
    while (written < text.size()) {
        const ssize_t put = ::write(fd, text.data() + written, text.size() - written);
        if (put < 0) {
            if (errno == EINTR) {
                continue;
            }
            ioFailure("cannot write", path, errno);
        }
        written += static_cast<std::size_t>(put);
    }
}

// Why a text is not JSON, in our words rather than the parser's; a syntax
// error is placed by line and column.
std::string notJson(const nlohmann::json::exception& error, const std::string& content)
{
    const auto* syntax = dynamic_cast<const nlohmann::json::parse_error*>(&error);
    if (syntax == nullptr) {
        return "not valid JSON: it holds a number too large to read";
    }
    const auto end = std::min<std::size_t>(syntax->byte == 0 ? 0 : syntax->byte - 1, content.size());
    std::size_t line = 1;
    std::size_t column = 1;
    for (std::size_t i = 0; i < end; ++i) {
        if (content[i] == '\n') {
            ++line;
            column = 1;
        } else {
            ++column;
        }
    }
    if (content.find_first_not_of(" \t\r\n") == std::string::npos) {
        return "not valid JSON: the file is empty";
    }
    if (end >= content.size()) {
        return "not valid JSON: it ends too early (line " + std::to_string(line) + ")";
    }
    return "not valid JSON at line " + std::to_string(line) + ", column " + std::to_string(column);
}

FirmwareState load(const std::filesystem::path& path, bool& exists)
{
    std::string content;
    exists = readFile(path, content);
    if (!exists) {
        return FirmwareState::defaults();
    }
    nlohmann::json document;
    try {
        document = nlohmann::json::parse(content);
    } catch (const nlohmann::json::exception& error) {
        // A syntax error, or a number too large for any type (out_of_range).
        throw StateError(StateError::Kind::Malformed, path.string() + ": " + notJson(error, content));
    }
    try {
        return FirmwareState(std::move(document));
    } catch (const StateError& error) {
        throw StateError(StateError::Kind::Malformed, path.string() + ": " + error.what());
    }
}

// Writes `text` to `fd` and syncs it.
void writeSynced(int fd, const std::string& text, const std::filesystem::path& path)
{
    writeAll(fd, text, path);
    if (::fsync(fd) != 0) {
        ioFailure("cannot write", path, errno);
    }
}

// Gives the unnamed file `fd` the name `path`: through AT_EMPTY_PATH where the
// process may (it needs CAP_DAC_READ_SEARCH), else through /proc, which a
// chroot may lack. False when neither works.
bool linkUnnamed(int fd, const std::filesystem::path& path)
{
    if (::linkat(fd, "", AT_FDCWD, path.c_str(), AT_EMPTY_PATH) == 0) {
        return true;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    return ::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// Writes the new state so that it has no name until it is complete: an
// O_TMPFILE file linked in as STATE.new. Where the file system has no
// O_TMPFILE, or the file cannot be linked, STATE.new is written by name.
// Called under the lock, so STATE.new belongs to this process alone.
void writeNewState(const std::filesystem::path& folder, const std::filesystem::path& newPath, const std::string& text)
{
    if (const UniqueFd unnamed(::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600)); unnamed) {
        writeSynced(unnamed.get(), text, newPath);
        if (linkUnnamed(unnamed.get(), newPath)) {
            return;
        }
    }
    const UniqueFd named(::open(newPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!named) {
        ioFailure("cannot create", newPath, errno);
    }
    writeSynced(named.get(), text, newPath);
}

void save(const std::filesystem::path& path, const FirmwareState& state)
{
    const auto folder = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    const auto newPath = companion(path, ".new");
    try {
        writeNewState(folder, newPath, state.document().dump(2) + "\n");
        if (::rename(newPath.c_str(), path.c_str()) != 0) {
            ioFailure("cannot replace", path, errno);
        }
    } catch (...) {
        ::unlink(newPath.c_str());
        throw;
    }
    // Make the rename itself durable.
    if (UniqueFd directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); directory) {
        ::fsync(directory.get());
    }
}

} // namespace

StateStore::StateStore(std::filesystem::path statePath) : statePath_(std::move(statePath)) {}

void StateStore::transact(const std::function<bool(FirmwareState&)>& apply) const
{
    const StateLock lock(statePath_);
    bool exists = false;
    FirmwareState state = load(statePath_, exists);
    const bool changed = apply(state);
    if (changed || !exists) {
        save(statePath_, state);
    }
}

void StateStore::replace(const FirmwareState& state) const
{
    const StateLock lock(statePath_);
    save(statePath_, state);
}

} // namespace partmode::sim
