#include "StateStore.h"

#include "StateError.h"
#include "UniqueFd.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
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

// Holds the exclusive lock of a state file for one access.
class StateLock {
public:
    explicit StateLock(const std::filesystem::path& statePath)
    {
        std::filesystem::path lockPath = statePath;
        lockPath += ".lock";
        std::error_code ignored;
        std::filesystem::create_directories(statePath.parent_path().empty() ? "." : statePath.parent_path(), ignored);
        fd_.reset(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
        if (!fd_) {
            ioFailure("cannot open", lockPath, errno);
        }
        while (::flock(fd_.get(), LOCK_EX) != 0) {
            if (errno != EINTR) {
                ioFailure("cannot lock", lockPath, errno);
            }
        }
    }
    // Closing the descriptor releases the lock.

private:
    UniqueFd fd_;
};

bool readFile(const std::filesystem::path& path, std::string& content)
{
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd) {
        if (errno == ENOENT) {
            return false;
        }
        throw StateError(StateError::Kind::Unreadable, describe("cannot read", path, errno));
    }
    std::vector<char> buffer(64 * 1024);
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer.data(), buffer.size());
        if (got < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw StateError(StateError::Kind::Unreadable, describe("cannot read", path, errno));
        }
        if (got == 0) {
            return true;
        }
        content.append(buffer.data(), static_cast<std::size_t>(got));
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
        throw StateError(StateError::Kind::Malformed, path.string() + ": " + error.what());
    }
    try {
        return FirmwareState(std::move(document));
    } catch (const StateError& error) {
        throw StateError(StateError::Kind::Malformed, path.string() + ": " + error.what());
    }
}

void save(const std::filesystem::path& path, const FirmwareState& state)
{
    const auto folder = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    std::string pattern = (folder / (path.filename().string() + ".XXXXXX")).string();
    UniqueFd fd(::mkstemp(pattern.data()));
    if (!fd) {
        ioFailure("cannot create a file in", folder, errno);
    }
    const std::filesystem::path temporary = pattern;
    try {
        writeAll(fd.get(), state.document().dump(2) + "\n", temporary);
        if (::fchmod(fd.get(), 0644) != 0 || ::fsync(fd.get()) != 0) {
            ioFailure("cannot write", temporary, errno);
        }
        fd.reset();
        if (::rename(temporary.c_str(), path.c_str()) != 0) {
            ioFailure("cannot replace", path, errno);
        }
    } catch (...) {
        ::unlink(temporary.c_str());
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
