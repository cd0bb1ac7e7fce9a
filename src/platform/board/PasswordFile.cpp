#include "PasswordFile.h"

#include "CheckedFile.h"
#include "PException.h"
#include "PlatformError.h"

#include <cerrno> // program_invocation_short_name
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
    using Kind = CheckedFile::Refused::Kind;
    std::string content;
    try {
        content = CheckedFile::read(path, rules());
    } catch (const CheckedFile::Refused& refused) {
        switch (refused.kind()) {
        case Kind::Missing:
        case Kind::Unreadable:
            refuse(path, error::kActionUnreadable, std::string("cannot read the password file: ") + refused.what());
        case Kind::Writable:
            refuse(path, error::kActionInsecure,
                   std::string("group or others may access the password file (") +
                       std::string(refused.what()).substr(std::string(refused.what()).find("mode ")) +
                       "; allow its owner only (chmod 600)");
        default:
            refuse(path, error::kActionInsecure, std::string("the password file ") + refused.what());
        }
    }
    std::string password = content.substr(0, content.find('\n'));
    if (!password.empty() && password.back() == '\r') {
        password.pop_back();
    }
    if (password.empty()) {
        refuse(path, error::kActionMalformed, "the password file holds no password on its first line");
    }
    if (password.size() > kMaxLength) {
        refuse(path, error::kActionMalformed, "the password is longer than 20 bytes");
    }
    return password;
}

CheckedFile::Rules PasswordFile::rules() { return {kSizeLimit, true}; }

} // namespace partmode
