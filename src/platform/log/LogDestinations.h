#pragma once

#include <string>

namespace partmode {

// The trace and audit files of this process, opened once, and what the
// audit record needs to know about the run: whether a change request left.
class LogDestinations {
public:
    // Part of the set-up of a session that may change something: opens the
    // trace and the audit destination the board names and loads the message
    // catalogue, so that nothing of that can fail after the change. Throws
    // PException (detail 0x0808) when the audit destination cannot be
    // written; a trace that cannot be opened only loses its lines.
    static void prepareForChange();

    // Writes one trace line (with its line end); a line that cannot be
    // written is dropped.
    static void trace(const std::string& line);

    // Writes one audit record (with its line end); empty when it was written,
    // else the reason.
    static std::string audit(const std::string& record);

    // Called before a change request is sent, whatever its answer will be:
    // from then on the firmware may have carried the change out.
    static void noteChangeRequest();
    [[nodiscard]] static bool changeRequested();
};

} // namespace partmode
