// Failures the in-band path meets on a real machine: the BMC goes away while
// a command runs, and the kernel's IPMI device is missing. They run in the
// machine of the in-band pass ($PARTMODE_SCENARIO_VM, see InbandTests.cmake).
#include "Base64.h"
#include "GuestAgentClient.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#ifndef PARTMODE_BINARY
#error "PARTMODE_BINARY must name the partmode executable"
#endif
#ifndef PARTMODE_SIM_BINARY
#error "PARTMODE_SIM_BINARY must name the simulator control executable"
#endif
#ifndef PARTMODE_INBAND_SCRIPT
#error "PARTMODE_INBAND_SCRIPT must name the script that starts and stops the machine"
#endif

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using partmode::test::base64Decode;
using partmode::test::base64Encode;
using partmode::test::GuestAgentClient;
using namespace std::chrono_literals;

constexpr auto kAgentTimeout = 120s;

fs::path vmFolder()
{
    const char* folder = std::getenv("PARTMODE_SCENARIO_VM");
    if (folder == nullptr || *folder == '\0')
        throw std::runtime_error("PARTMODE_SCENARIO_VM names no machine of the in-band pass");
    return folder;
}

struct GuestRun {
    int status = -1;
    std::string out;
    std::string err;
    std::string trace;
    std::chrono::nanoseconds took{};
};

// Runs the tool in the guest in a fresh run folder with a board that reaches
// the BMC in-band.
GuestRun runTool(GuestAgentClient& agent, const std::vector<std::string>& args, const std::string& input = "",
                 std::chrono::milliseconds inputDelay = 0ms)
{
    const partmode::test::TemporaryDirectory dir;
    const json board{{"firmware", json::parse(partmode::test::readFile(vmFolder() / "firmware.json"))},
                     {"trace", (dir.path() / "trace.log").string()},
                     {"audit", (dir.path() / "audit.log").string()}};
    dir.write("board.json", board.dump());
    std::vector<std::string> argv{"partmode"};
    argv.insert(argv.end(), args.begin(), args.end());
    const json request{{"clear", dir.path().string()},
                       {"entries", GuestAgentClient::folderEntries(dir.path())},
                       {"passwd", "root:x:0:0:root:/root:/bin/sh\n"},
                       {"program", PARTMODE_BINARY},
                       {"argv", argv},
                       {"env",
                        {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + dir.path().string(),
                         "PARTMODE_BOARD=" + (dir.path() / "board.json").string()}},
                       {"cwd", dir.path().string()},
                       {"stdin", input.empty() ? json() : json(base64Encode(input))},
                       {"stdin_delay_ms", inputDelay.count()},
                       {"timeout_ms", 60000},
                       {"collect", dir.path().string()}};
    const json answer = agent.call(request, kAgentTimeout);
    GuestRun run;
    run.status = answer.at("status").get<int>();
    run.out = base64Decode(answer.at("stdout").get<std::string>());
    run.err = base64Decode(answer.at("stderr").get<std::string>());
    run.took = std::chrono::nanoseconds(answer.at("durations_ns").at(0).get<std::int64_t>());
    for (const auto& file : answer.at("files")) {
        if (fs::path(file.at("path").get<std::string>()).filename() == "trace.log")
            run.trace = base64Decode(file.at("data").get<std::string>());
    }
    return run;
}

// A guest shell command through busybox; returns its exit status.
int guestShell(GuestAgentClient& agent, const std::string& command)
{
    const json request{{"program", "/bin/busybox"}, {"argv", {"sh", "-c", command}}, {"env", {"PATH=/bin"}}};
    const json answer = agent.call(request, kAgentTimeout);
    const int status = answer.at("status").get<int>();
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The trace lines without their "time partmode[pid]: " prefix.
std::vector<std::string> traceMessages(const std::string& trace)
{
    static const std::regex prefix{R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} partmode\[\d+\]: )"};
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < trace.size()) {
        const auto end = trace.find('\n', start);
        const auto line = trace.substr(start, end == std::string::npos ? std::string::npos : end - start);
        lines.push_back(std::regex_replace(line, prefix, ""));
        start = end == std::string::npos ? trace.size() : end + 1;
    }
    return lines;
}

int command(const std::string& command)
{
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The BMC's state back to the defaults, whatever the scenarios left.
void resetState()
{
    ASSERT_EQ(command("'" PARTMODE_SIM_BINARY "' --state '" + (vmFolder() / "state.json").string() + "' init"), 0);
}

int script(const std::vector<std::string>& words)
{
    std::string line = "sh '" PARTMODE_INBAND_SCRIPT "'";
    for (const auto& word : words)
        line += " '" + word + "'";
    return command(line);
}

TEST(InbandFault, NoDeviceWithoutTheDeviceModule)
{
    resetState();
    GuestAgentClient agent(vmFolder() / "agent.sock");
    ASSERT_EQ(guestShell(agent, "rmmod ipmi_devintf && ! test -e /dev/ipmi0"), 0);
    const auto run = runTool(agent, {"show", "partition", "pci_express_mode", "0"});
    const int restored =
        guestShell(agent, "insmod /lib/modules/$(cat /etc/kernel-release)/ipmi_devintf.ko && "
                          "for i in $(seq 100); do test -c /dev/ipmi0 && exit 0; sleep 0.1; done; exit 1");

    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, "Failed to execute show partition pci_express_mode 0 command.\n");
    EXPECT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 2) << "wait status " << run.status;
    EXPECT_EQ(traceMessages(run.trace),
              (std::vector<std::string>{"20062: IPMI session failed: in-band device /dev/ipmi0: device not found",
                                        "10047: Command failed: show partition pci_express_mode 0 (2054, 6)"}));
    EXPECT_EQ(restored, 0) << "ipmi_devintf could not be loaded again";
    // The device is back: the next command reaches the BMC again.
    const auto after = runTool(agent, {"show", "partition", "pci_express_mode", "0"});
    EXPECT_EQ(after.out, "pci_express_mode: flexible\n");
}

TEST(InbandFault, BmcGoesAwayWhileTheCommandWaitsForTheOperator)
{
    resetState();
    GuestAgentClient agent(vmFolder() / "agent.sock");
    // The answer to the prompt comes 12 s after the start; the BMC is stopped
    // after 6 s, when the command has read the partition and asks.
    std::thread stopper([] {
        std::this_thread::sleep_for(6s);
        script({"bmc-stop", vmFolder().string()});
    });
    GuestRun run;
    try {
        run = runTool(agent, {"set", "partition", "lan_device_mode", "0", "1", "wol_disable"}, "y\n", 12s);
    } catch (...) {
        stopper.join();
        throw;
    }
    stopper.join();
    const int restarted = script({"bmc-start", vmFolder().string(), PARTMODE_SIM_BINARY});

    EXPECT_EQ(run.out, "The setting will become effective the next time the partition power off/on is "
                       "performed.\nAre you sure to continue?[Y/N]");
    EXPECT_EQ(run.err, "Failed to execute set partition lan_device_mode 0 1 wol_disable command.\n");
    EXPECT_TRUE(WIFEXITED(run.status) && WEXITSTATUS(run.status) == 2) << "wait status " << run.status;
    // With no BMC behind it, QEMU's KCS interface answers 0xD2 (210), "BMC
    // initialisation in progress", at once.
    EXPECT_EQ(traceMessages(run.trace),
              (std::vector<std::string>{"20003: OEM Set Partition Lan Device Mode Command failed",
                                        "10047: Command failed: set partition lan_device_mode 0 1 wol_disable "
                                        "(1792, 210)"}));
    // Within the tool's own time: 12 s of waiting for the answer, then no
    // more than the driver's timeout.
    EXPECT_LT(run.took, 30s);

    // Once the BMC is back, QEMU reconnects within 10 s and the machine
    // reaches it again, so the tests after this one find it as before.
    ASSERT_EQ(restarted, 0) << "the BMC did not start again";
    GuestRun after;
    for (int attempt = 0; attempt < 30; ++attempt) {
        after = runTool(agent, {"show", "partition", "pci_express_mode", "0"});
        if (after.out == "pci_express_mode: flexible\n")
            break;
        std::this_thread::sleep_for(1s);
    }
    EXPECT_EQ(after.out, "pci_express_mode: flexible\n") << after.err;
}

} // namespace
