#include "AppendFile.h"

#include "CheckedFile.h"
#include "FileLock.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

namespace partmode {

AppendFile::AppendFile(const std::filesystem::path& path) : path_(path)
{
    std::error_code ignored;
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path(), ignored);
    }
    fd_ = CheckedFile::open(path, O_WRONLY | O_APPEND, {}, 0640);
}

std::string AppendFile::append(const std::string& record) const
{
    const FileLock lock(fd_.get());
    if (!lock.held()) {
        return "cannot lock " + path_.string() + ": " + lock.failure();
    }
    struct stat before {};
    if (::fstat(fd_.get(), &before) != 0) {
        return path_.string() + ": " + std::strerror(errno);
    }
    ssize_t written = 0;
    do {
        written = ::write(fd_.get(), record.data(), record.size());
    } while (written < 0 && errno == EINTR);
    if (written == static_cast<ssize_t>(record.size())) {
        return {};
    }
    std::string reason =
        path_.string() + ": " +
        (written < 0 ? std::strerror(errno)
                     : "only " + std::to_string(written) + " of " + std::to_string(record.size()) + " bytes written");
    struct stat after {};
    if (::fstat(fd_.get(), &after) == 0 && after.st_size > before.st_size &&
        ::ftruncate(fd_.get(), before.st_size) != 0) {
        return reason + "; the torn record could not be removed: " + std::strerror(errno);
    }
    return reason;
}

} // namespace partmode
