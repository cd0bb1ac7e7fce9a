#pragma once

#include "UniqueFd.h"

#include <filesystem>
#include <string>

namespace partmode {

// A log file that grows by whole records: trace lines and audit records.
// Each record goes out in one write on a descriptor opened with O_APPEND,
// under an exclusive lock of the file, so records of concurrent processes
// never interleave; a write that the file system cuts short is taken back,
// so no torn record is left for the next one to be glued to.
class AppendFile {
public:
    // Opens the file through CheckedFile, creating it (mode 0640) and its
    // folder when missing. Throws CheckedFile::Refused.
    explicit AppendFile(const std::filesystem::path& path);

    // Appends `record`; empty when it was written whole, else the reason
    // (and the file is as it was before).
    [[nodiscard]] std::string append(const std::string& record) const;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    UniqueFd fd_;
};

} // namespace partmode
