#pragma once

#include "FirmwareState.h"

#include <filesystem>
#include <functional>

namespace partmode::sim {

// The state file of one simulated firmware. Every access holds an exclusive
// flock on the companion file STATE.lock (which is never replaced, unlike the
// state file itself), waited for at most FileLock::kDefaultWait. A change is
// written to an unnamed file in the same folder, synced, linked in as
// STATE.new and renamed over the state file, so concurrent processes never
// lose an update and never see a torn file. Failures throw StateError.
class StateStore {
public:
    explicit StateStore(std::filesystem::path statePath);

    // Runs `apply` on the current state under the lock; writes the state back
    // when `apply` returns true. A missing state file is created with the
    // defaults first.
    void transact(const std::function<bool(FirmwareState&)>& apply) const;

    // Replaces the state with `state`, under the lock.
    void replace(const FirmwareState& state) const;

    [[nodiscard]] const std::filesystem::path& path() const { return statePath_; }

private:
    std::filesystem::path statePath_;
};

} // namespace partmode::sim
