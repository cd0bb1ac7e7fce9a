#pragma once

#include <filesystem>
#include <string>

namespace partmode {

// Appends whole records to a log file. Each record goes out in one write on a
// descriptor opened with O_APPEND, so records of concurrent processes never
// interleave. The folder is created when missing.
class AppendFile {
public:
    static bool append(const std::filesystem::path& path, const std::string& record);
};

} // namespace partmode
