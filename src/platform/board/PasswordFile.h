#pragma once

#include "CheckedFile.h"

#include <filesystem>
#include <string>

namespace partmode {

// The BMC password, kept in a file of its own so that it never appears on a
// command line or in the environment. Like ssh with a private key, the file
// is refused unless it is a regular file of at most 1 KiB that belongs to the
// effective user or root, that only its owner may access and whose folder
// others may not write to; on every run, privileged or not.
class PasswordFile {
public:
    // IPMI 2.0 passwords are at most 20 bytes long.
    static constexpr std::size_t kMaxLength = 20;

    // The first line of the file, without its line end. On refusal, says why
    // in one line on standard error and throws PException.
    static std::string read(const std::filesystem::path& path);

    // The checks of a password file, for any other secret kept the same way.
    static CheckedFile::Rules rules();

    static constexpr std::size_t kSizeLimit = 1024;
};

} // namespace partmode
