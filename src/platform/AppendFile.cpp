#include "AppendFile.h"

#include "UniqueFd.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace partmode {

bool AppendFile::append(const std::filesystem::path& path, const std::string& record)
{
    if (path.empty()) {
        return false;
    }
    std::error_code ignored;
    if (path.has_parent_path()) {
        std::filesystem::create_directories(path.parent_path(), ignored);
    }
    const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) {
        return false;
    }
    ssize_t written = 0;
    do {
        written = ::write(fd.get(), record.data(), record.size());
    } while (written < 0 && errno == EINTR);
    return written == static_cast<ssize_t>(record.size());
}

} // namespace partmode
