#pragma once

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode::test {

// The host's end of the guest agent's serial port (a Unix socket of QEMU's):
// sends one request and waits for its answer, both one JSON line each.
class GuestAgentClient {
public:
    explicit GuestAgentClient(const std::filesystem::path& socket);
    GuestAgentClient(const GuestAgentClient&) = delete;
    GuestAgentClient& operator=(const GuestAgentClient&) = delete;
    ~GuestAgentClient();

    // Throws std::runtime_error when no answer comes within `timeout` or the
    // agent answers with an error.
    nlohmann::json call(nlohmann::json request, std::chrono::milliseconds timeout);

    // The request entries that lay out `folder` in the guest at the same path:
    // every folder and regular file under it, with mode, owner and content. A
    // file equal to one of `guestHas`, which the guest holds at the same path,
    // is copied there from it instead of sent.
    static nlohmann::json folderEntries(const std::filesystem::path& folder,
                                        const std::vector<std::filesystem::path>& guestHas = {});

private:
    int fd_ = -1;
    unsigned long next_ = 0;
    std::string pending_;
};

} // namespace partmode::test
