#pragma once

#include <stdexcept>
#include <string>

namespace partmode::sim {

// The words or options of partmode-sim's command line are not accepted; the
// text says why.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& reason) : std::runtime_error(reason) {}
};

} // namespace partmode::sim
