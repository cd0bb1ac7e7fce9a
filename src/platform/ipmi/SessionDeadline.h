#pragma once

#include <signal.h>

#include <chrono>

namespace partmode {

// The end of a LAN session's time: its session timeout bounds the whole
// session, from the first datagram to the close, not each exchange. While a
// call into libfreeipmi runs under an Armed guard, SIGALRM interrupts its wait
// for an answer once the time is up (and every 10 ms after that, in case the
// first signal came between two waits), so the call fails and the session
// with it.
class SessionDeadline {
public:
    explicit SessionDeadline(std::chrono::milliseconds budget);

    [[nodiscard]] bool passed() const { return std::chrono::steady_clock::now() >= end_; }
    [[nodiscard]] std::chrono::milliseconds budget() const { return budget_; }

    // Arms the alarm for one call (nothing without a deadline); the
    // destructor disarms it and restores the previous SIGALRM handler.
    class Armed {
    public:
        explicit Armed(const SessionDeadline* deadline);
        Armed(const Armed&) = delete;
        Armed& operator=(const Armed&) = delete;
        ~Armed();

    private:
        bool armed_ = false;
        struct sigaction previous_ {};
    };

private:
    std::chrono::steady_clock::time_point end_;
    std::chrono::milliseconds budget_;
};

} // namespace partmode
