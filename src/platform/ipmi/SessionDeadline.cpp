#include "SessionDeadline.h"

#include <sys/time.h>

#include <algorithm>

namespace partmode {
namespace {

// The signal only has to interrupt a system call; there is nothing to do.
void interrupt(int /*signal*/) {}

itimerval interval(std::chrono::microseconds first, std::chrono::microseconds then)
{
    itimerval value{};
    value.it_value.tv_sec = static_cast<time_t>(first.count() / 1000000);
    value.it_value.tv_usec = static_cast<suseconds_t>(first.count() % 1000000);
    value.it_interval.tv_sec = static_cast<time_t>(then.count() / 1000000);
    value.it_interval.tv_usec = static_cast<suseconds_t>(then.count() % 1000000);
    return value;
}

} // namespace

SessionDeadline::SessionDeadline(std::chrono::milliseconds budget)
    : end_(std::chrono::steady_clock::now() + budget), budget_(budget)
{
}

SessionDeadline::Armed::Armed(const SessionDeadline* deadline) : armed_(deadline != nullptr)
{
    if (!armed_) {
        return;
    }
    struct sigaction action {};
    action.sa_handler = interrupt;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: the interrupted poll or recvfrom must return.
    action.sa_flags = 0;
    sigaction(SIGALRM, &action, &previous_);
    const auto left =
        std::chrono::duration_cast<std::chrono::microseconds>(deadline->end_ - std::chrono::steady_clock::now());
    // A zero it_value would disarm the timer, so a spent budget fires at once.
    const auto first = std::max(left, std::chrono::microseconds(1));
    const itimerval value = interval(first, std::chrono::milliseconds(10));
    setitimer(ITIMER_REAL, &value, nullptr);
}

SessionDeadline::Armed::~Armed()
{
    if (!armed_) {
        return;
    }
    const itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &previous_, nullptr);
}

} // namespace partmode
