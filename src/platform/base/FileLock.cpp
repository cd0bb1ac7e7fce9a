#include "FileLock.h"

#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>

namespace partmode {

FileLock::FileLock(int fd, std::chrono::milliseconds wait) : fd_(fd)
{
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + wait;
    auto pause = std::chrono::milliseconds(1);
    for (;;) {
        if (::flock(fd_, LOCK_EX | LOCK_NB) == 0) {
            held_ = true;
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            failure_ = std::strerror(errno);
            return;
        }
        const auto now = Clock::now();
        if (now >= deadline) {
            failure_ = "held by another process for more than " + std::to_string(wait.count()) + " ms";
            timedOut_ = true;
            return;
        }
        std::this_thread::sleep_for(std::min<Clock::duration>(pause, deadline - now));
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
}

FileLock::~FileLock()
{
    if (held_) {
        ::flock(fd_, LOCK_UN);
    }
}

} // namespace partmode
