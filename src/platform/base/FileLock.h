#pragma once

#include <chrono>
#include <string>

namespace partmode {

// An exclusive flock on an open descriptor, held for the object's life. The
// wait is bounded: another process that holds the lock for longer must not
// stall every run.
class FileLock {
public:
    static constexpr std::chrono::milliseconds kDefaultWait{10000};

    // Waits at most `wait` for the lock; whether it was taken tells held(),
    // and why not tells failure().
    explicit FileLock(int fd, std::chrono::milliseconds wait = kDefaultWait);
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
    ~FileLock();

    [[nodiscard]] bool held() const { return held_; }
    [[nodiscard]] const std::string& failure() const { return failure_; }
    // The lock was not taken because the wait ran out.
    [[nodiscard]] bool timedOut() const { return timedOut_; }

private:
    int fd_;
    bool held_ = false;
    bool timedOut_ = false;
    std::string failure_;
};

} // namespace partmode
