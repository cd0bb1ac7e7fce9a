#pragma once

namespace partmode::sim {

// The control program of the firmware simulator, partmode-sim: reads its
// command line (options may stand anywhere), checks every number against the
// board and runs one command on the state file, or serves it as a BMC.
class SimControl {
public:
    // Returns the exit status: 0 done, 1 the board, the state file or the BMC
    // cannot be used, 64 the command line is not accepted.
    int run(int argc, const char* const* argv) const;

    static constexpr int kUsageStatus = 64;
};

} // namespace partmode::sim
