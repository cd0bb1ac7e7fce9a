#pragma once

#include "TemporaryDirectory.h"

#include <cstdlib>
#include <filesystem>

namespace partmode::fuzz {

// The folder for the files one fuzzing process works on, removed when the
// process ends. It lies in memory where the machine has /dev/shm, since the
// simulator syncs every change it writes.
inline const test::TemporaryDirectory& scratchFolder()
{
    static const bool inMemory = std::filesystem::is_directory("/dev/shm") && ::setenv("TMPDIR", "/dev/shm", 1) == 0;
    static const test::TemporaryDirectory folder;
    static_cast<void>(inMemory);
    return folder;
}

} // namespace partmode::fuzz
