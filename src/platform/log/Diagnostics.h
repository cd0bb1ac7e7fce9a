#pragma once

#include <cstdint>
#include <string>

class PException;

namespace partmode {

// Reasons on request. The failure line of a command says only that it failed;
// the reason goes to the trace. A board with "diagnostics": "stderr" also
// gets the reason in plain words, as one more line on standard error after
// the failure line, so an operator sees it without opening the trace.
class Diagnostics {
public:
    // The reason of a traced failure detail: the detail's own words without
    // the command name, and the two numbers of the trace line, explained when
    // they are an exception detail and an action code.
    static std::string explain(const std::string& commandName, const std::string& detail, int first, int second);
    // The reason of a platform exception: its text arguments, then what its
    // exception detail and action code mean.
    static std::string explain(const PException& exception);

    // What an exception detail means; "" for a number that is none.
    static std::string detailWords(int detail);
    // What an action code means for `detail`.
    static std::string actionWords(int detail, int action);

    // Writes "partmode: reason: REASON" on standard error when the board asks
    // for reasons and `reason` is not empty.
    static void report(const std::string& reason);
};

} // namespace partmode
