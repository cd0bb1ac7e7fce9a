#include "PasswordFile.h"

#include "PException.h"
#include "PlatformError.h"
#include "UniqueFd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno> // program_invocation_short_name
#include <cstdio>
#include <cstring>
#include <iostream>

namespace partmode {
namespace {

[[noreturn]] void refuse(const std::filesystem::path& path, std::uint8_t action, const std::string& reason)
{
    std::cerr << program_invocation_short_name << ": " << path.string() << ": " << reason << std::endl;
    throw PException(1, 0x52, 0, action, error::kDetailPasswordFile, error::kMessagePlatformFailure,
                     {path.string(), reason});
}

} // namespace

std::string PasswordFile::read(const std::filesystem::path& path)
{
    // O_NONBLOCK keeps a FIFO in place of the file from blocking the open.
    const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    if (!fd) {
        refuse(path, error::kActionUnreadable, std::string("cannot read the password file: ") + std::strerror(errno));
    }
    struct stat status {};
    if (::fstat(fd.get(), &status) != 0) {
        refuse(path, error::kActionUnreadable, std::string("cannot read the password file: ") + std::strerror(errno));
    }
    if (!S_ISREG(status.st_mode)) {
        refuse(path, error::kActionInsecure, "the password file is not a regular file");
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        std::array<char, 8> mode{};
        std::snprintf(mode.data(), mode.size(), "%04o", static_cast<unsigned int>(status.st_mode & 07777));
        refuse(path, error::kActionInsecure,
               std::string("group or others may access the password file (mode ") + mode.data() +
                   "); allow its owner only (chmod 600)");
    }
    std::string content;
    std::array<char, 256> buffer{};
    for (;;) {
        const ssize_t got = ::read(fd.get(), buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            refuse(path, error::kActionUnreadable,
                   std::string("cannot read the password file: ") + std::strerror(errno));
        }
        if (got == 0) {
            break;
        }
        content.append(buffer.data(), static_cast<std::size_t>(got));
        if (content.find('\n') != std::string::npos || content.size() > kMaxLength + 2) {
            break;
        }
    }
    std::string password = content.substr(0, content.find('\n'));
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    if (password.size() > kMaxLength) {
        refuse(path, error::kActionMalformed, "the password is longer than 20 bytes");
    }
    return password;
}

} // namespace partmode
