#pragma once

#include <cstdint>

namespace trace {

// The board's trace sink. A record is one line in the board's trace file:
// local time, partmode[PID]: and the text, whose line ends are written as the
// two characters \n; on a board that traces to syslog, the text is a record
// of facility user at level debug. Tracing never fails the caller: a
// line that cannot be written is dropped.
class OrbTrace {
public:
    OrbTrace(std::uint8_t facility, std::uint8_t component, std::uint16_t size);

    void putLog(std::uint8_t level, const char* text) const;

    [[nodiscard]] std::uint8_t facility() const { return facility_; }
    [[nodiscard]] std::uint8_t component() const { return component_; }
    [[nodiscard]] std::uint16_t size() const { return size_; }

private:
    std::uint8_t facility_;
    std::uint8_t component_;
    std::uint16_t size_;
};

} // namespace trace
