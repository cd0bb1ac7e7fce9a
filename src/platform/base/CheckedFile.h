#pragma once

#include "UniqueFd.h"

#include <sys/types.h>

#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace partmode {

// Opens the files partmode and its simulator trust (board, state, lock, trace,
// audit, message catalogue, password) so that none can be redirected: the last
// component is never followed when it is a symbolic link, a FIFO or device
// never blocks the open, and anything but a regular file within the size limit
// is refused. In a privileged run (set-user-ID or set-group-ID) the file must
// also belong to the effective user or root and must not be writable by group
// or others.
class CheckedFile {
public:
    static constexpr std::size_t kMiB = 1024 * 1024;

    // Why a file was refused; what() is a reason to print after the path.
    class Refused : public std::runtime_error {
    public:
        enum class Kind { Missing, Unreadable, NotRegular, TooLarge, Owner, Writable, FolderWritable };
        Refused(Kind kind, const std::string& reason, int error = 0)
            : std::runtime_error(reason), kind_(kind), error_(error)
        {
        }
        [[nodiscard]] Kind kind() const { return kind_; }
        // The errno that reading the file would meet (a missing file, no
        // access, a folder); 0 where the refusal is this class's own.
        [[nodiscard]] int error() const { return error_; }

    private:
        Kind kind_;
        int error_;
    };

    struct Rules {
        // Largest size accepted; 0 for files that only grow by appending.
        std::size_t sizeLimit = 0;
        // On every run, not only privileged ones: the file belongs to the
        // effective user or root, neither group nor others may access it,
        // and its folder is not writable by others.
        bool privateToOwner = false;
    };

    // Opens `path` with `flags` (O_RDONLY, O_WRONLY | O_APPEND, O_RDWR, ...);
    // `createMode` other than 0 creates a missing file with that mode. Throws
    // Refused.
    static UniqueFd open(const std::filesystem::path& path, int flags, const Rules& rules, mode_t createMode = 0);

    // The whole content of a file opened for reading; throws Refused.
    static std::string read(const std::filesystem::path& path, const Rules& rules);
    // The same for a descriptor that open() returned.
    static std::string read(int fd, const Rules& rules);

    // The kernel marked this process secure: it was started set-user-ID or
    // set-group-ID, so its caller is not to be trusted.
    static bool privileged();
};

} // namespace partmode
