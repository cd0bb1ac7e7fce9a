#pragma once

#include <stdexcept>
#include <string>

namespace partmode::sim {

// The firmware state file cannot be read, parsed, locked or written; Busy:
// another process held its lock for longer than the wait allows.
class StateError : public std::runtime_error {
public:
    enum class Kind { Unreadable, Malformed, Io, Busy };

    StateError(Kind kind, const std::string& reason) : std::runtime_error(reason), kind_(kind) {}

    [[nodiscard]] Kind kind() const { return kind_; }

private:
    Kind kind_;
};

} // namespace partmode::sim
