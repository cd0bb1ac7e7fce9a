// partmode-sim serve at start: a port that any program holds, a broken state
// file, the board file it writes, the folders that killed servers left, and
// an address other than 127.0.0.1.
#include "SimControlFixture.h"
#include "UniqueFd.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace partmode::test {
namespace {

using nlohmann::json;
using namespace std::chrono_literals;

std::string ipmiSimPath()
{
    for (const char* path : {"/usr/bin/ipmi_sim", "/usr/sbin/ipmi_sim"}) {
        if (::access(path, X_OK) == 0) {
            return path;
        }
    }
    return {};
}

// A socket bound to the address on a free port (a TCP one listening), as
// another program (ipmi_sim too, which sets SO_REUSEADDR) would hold it.
class HeldPort {
public:
    explicit HeldPort(const std::string& address, int type = SOCK_DGRAM)
        : fd_(::socket(AF_INET, type | SOCK_CLOEXEC, 0))
    {
        const int on = 1;
        sockaddr_in socket{};
        socket.sin_family = AF_INET;
        ::inet_pton(AF_INET, address.c_str(), &socket.sin_addr);
        socklen_t length = sizeof(socket);
        if (!fd_ || ::setsockopt(fd_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
            ::bind(fd_.get(), reinterpret_cast<sockaddr*>(&socket), sizeof(socket)) != 0 ||
            ::getsockname(fd_.get(), reinterpret_cast<sockaddr*>(&socket), &length) != 0 ||
            (type == SOCK_STREAM && ::listen(fd_.get(), 1) != 0)) {
            throw std::runtime_error("cannot hold a UDP port on " + address);
        }
        port_ = ntohs(socket.sin_port);
    }

    [[nodiscard]] unsigned int port() const { return port_; }

private:
    UniqueFd fd_;
    unsigned int port_ = 0;
};

class SimServe : public SimControlFixture {
protected:
    void SetUp() override
    {
        if (ipmiSimPath().empty()) {
            GTEST_SKIP() << "ipmi_sim (Debian package openipmi) is not installed";
        }
    }

    // A stand-in for ipmi_sim that only records that it was started.
    std::string fakeIpmiSimPath() { return ipmiSimInPath("#!/bin/sh\ntouch \"$(dirname \"$0\")/started\"\nexit 3\n"); }

    // PATH with an ipmi_sim of the script's own first.
    std::string ipmiSimInPath(const std::string& script)
    {
        folder.write("fake/ipmi_sim", script);
        std::filesystem::permissions(folder.path() / "fake/ipmi_sim", std::filesystem::perms::owner_all);
        return "PATH=" + (folder.path() / "fake").string() + ":/usr/bin:/bin";
    }
    [[nodiscard]] bool fakeStarted() const { return std::filesystem::exists(folder.path() / "fake/started"); }

    // The firmware object a serve prints once its BMC answers.
    static json firmwareLine(ToolProcess& serve)
    {
        const auto deadline = std::chrono::steady_clock::now() + 30s;
        while (std::chrono::steady_clock::now() < deadline) {
            const auto out = serve.outputSoFar();
            if (out.find('\n') != std::string::npos) {
                return json::parse(out);
            }
            std::this_thread::sleep_for(20ms);
        }
        const auto outcome = serve.finish(1s);
        throw std::runtime_error("partmode-sim serve did not start: " + outcome.err);
    }

    static void stop(ToolProcess& serve)
    {
        serve.signal(SIGTERM);
        const auto outcome = serve.finish(10s);
        EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << outcome.err;
    }

    // A board with `firmware` for the tool.
    std::filesystem::path toolBoard(const json& firmware)
    {
        const json board{{"firmware", firmware}, {"trace", "tool-trace.log"}, {"audit", "tool-audit.log"}};
        return folder.write("tool-board.json", board.dump());
    }
};

TEST_F(SimServe, RefusesAPortAnotherProgramHoldsBeforeIpmiSimStarts)
{
    const auto path = fakeIpmiSimPath();
    const HeldPort held("127.0.0.1");
    const auto outcome = sim({"serve", "--port", std::to_string(held.port())}, {path});
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "partmode-sim: UDP port " + std::to_string(held.port()) +
                               " of 127.0.0.1 is already in use by another program; choose another --port\n");
    EXPECT_TRUE(outcome.exited(1)) << outcome.describe();
    EXPECT_FALSE(fakeStarted());

    const HeldPort listening("127.0.0.1", SOCK_STREAM);
    const auto vm = sim({"serve", "--vm-port", std::to_string(listening.port())}, {path});
    EXPECT_EQ(vm.out, "");
    EXPECT_EQ(vm.err, "partmode-sim: TCP port " + std::to_string(listening.port()) +
                          " of 127.0.0.1 is already in use by another program; choose another --vm-port\n");
    EXPECT_TRUE(vm.exited(1)) << vm.describe();
    EXPECT_FALSE(fakeStarted());

    // On a free port the stand-in is started, so its absence above counts.
    const auto free = sim({"serve", "--port", "0"}, {path});
    EXPECT_TRUE(free.exited(1)) << free.describe();
    EXPECT_NE(free.err.find("ipmi_sim ended with exit status 3 before it answered"), std::string::npos) << free.err;
    EXPECT_TRUE(fakeStarted());
}

TEST_F(SimServe, ASecondServeOnAServedPortIsRefused)
{
    auto first = start({"serve", "--port", "0"});
    const auto firmware = firmwareLine(first);
    const auto port = firmware.at("port").get<unsigned int>();
    const auto second =
        sim({"serve", "--port", std::to_string(port), "--state", (folder.path() / "other.json").string()});
    EXPECT_EQ(second.out, "");
    EXPECT_EQ(second.err, "partmode-sim: UDP port " + std::to_string(port) +
                              " of 127.0.0.1 is already in use by another program; choose another --port\n");
    EXPECT_TRUE(second.exited(1)) << second.describe();

    const auto shown = tool(toolBoard(firmware), {"show", "partition", "pci_express_mode", "0"});
    EXPECT_EQ(shown.out, "pci_express_mode: flexible\n");
    EXPECT_TRUE(shown.exited(0)) << shown.describe() << shown.err;
    stop(first);
}

TEST_F(SimServe, GivesUpAPortThatAnotherBmcTookWhileItStarted)
{
    // Two BMCs on one configuration, as when two servers find the same port
    // free at the same moment: both bind it, and both answer. The other one
    // (ipmi_sim -c CONF -f COMMANDS -s FOLDER -n) keeps its own folder and has
    // bound the port before the server's own starts.
    const auto program = ipmiSimPath();
    const auto path = ipmiSimInPath("#!/bin/sh\n"
                                    "folder=$(dirname \"$0\")\n"
                                    "mkdir -p \"$folder/other\"\n" +
                                    program +
                                    " -c \"$2\" -f \"$4\" -s \"$folder/other\" -n &\n"
                                    "echo $! > \"$folder/other.pid\"\n"
                                    "port=$(printf %04X \"$(sed -n 's/^  addr [^ ]* //p' \"$2\")\")\n"
                                    "for i in $(seq 100); do\n"
                                    "    grep -q \":$port \" /proc/net/udp && break\n"
                                    "    sleep 0.1\n"
                                    "done\n"
                                    "exec " +
                                    program + " \"$@\"\n");
    const auto port = HeldPort("127.0.0.1").port();
    const auto outcome = sim({"serve", "--port", std::to_string(port)}, {path});
    const auto other = std::stoi(readFile(folder.path() / "fake/other.pid"));
    ::kill(other, SIGTERM);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "partmode-sim: UDP port " + std::to_string(port) +
                               " of 127.0.0.1 is already in use by another program; choose another --port\n");
    EXPECT_TRUE(outcome.exited(1)) << outcome.describe();
}

TEST_F(SimServe, ChecksTheStateFileAtStartAsShowDoes)
{
    const auto path = fakeIpmiSimPath();
    for (const std::string content : {"{\"partitions\": ", "[1, 2]", "{\"faults\": [{\"netfn\": 48}]}"}) {
        folder.write("firmware.json", content);
        const auto shown = sim({"show"});
        ASSERT_TRUE(shown.exited(1)) << shown.describe();
        const auto served = sim({"serve", "--port", "0"}, {path});
        EXPECT_EQ(served.out, "");
        EXPECT_EQ(served.err, shown.err);
        EXPECT_TRUE(served.exited(1)) << served.describe();
        EXPECT_FALSE(fakeStarted()) << content;
        EXPECT_EQ(readFile(state()), content);
    }
}

TEST_F(SimServe, WritesACompleteBoardThatReachesTheBmc)
{
    writeBoard(R"({"_comment": "the operator's board", "partitions": 4, "extended_partitions": 2, "io_units": 8,
                   "io_unit_name": "Unit %u", "firmware": {"transport": "simulator", "state": "firmware.json"},
                   "trace": "trace.log", "audit": "syslog"})");
    std::filesystem::create_directory(folder.path() / "served");
    const auto servedBoard = folder.path() / "served/board.json";
    auto serve = start({"serve", "--board", servedBoard.string(), "--port", "0"});
    const auto firmware = firmwareLine(serve);

    struct stat status {};
    ASSERT_EQ(::stat(servedBoard.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    const auto board = readJson(servedBoard);
    EXPECT_EQ(board, json({{"_comment", "the operator's board"},
                           {"partitions", 4},
                           {"extended_partitions", 2},
                           {"io_units", 8},
                           {"io_unit_name", "Unit %u"},
                           {"firmware", firmware},
                           {"trace", (folder.path() / "trace.log").string()},
                           {"audit", "syslog"}}));
    EXPECT_EQ(firmware.at("transport"), "lan");

    expectDone(sim({"set", "partition", "1", "pci_express_mode", "0", "0"}));
    const auto shown = tool(servedBoard, {"show", "partition", "pci_express_mode", "1"});
    EXPECT_EQ(shown.out, "pci_express_mode: fixed\n");
    EXPECT_EQ(shown.err, "");
    EXPECT_TRUE(shown.exited(0)) << shown.describe();
    EXPECT_NE(readFile(folder.path() / "trace.log").find("10046: Command completed: show partition pci_express_mode 1"),
              std::string::npos);
    stop(serve);

    const auto missing = folder.path() / "missing/board.json";
    const auto refused = sim({"serve", "--port", "0", "--board", missing.string()});
    EXPECT_EQ(refused.err, "partmode-sim: cannot write the board file " + missing.string() + ": the folder " +
                               missing.parent_path().string() + " does not exist\n");
    EXPECT_TRUE(refused.exited(1)) << refused.describe();
}

TEST_F(SimServe, RemovesOnlyTheFoldersThatKilledServesLeft)
{
    const auto folderOf = [](const json& firmware) {
        return std::filesystem::path(firmware.at("password_file").get<std::string>()).parent_path();
    };
    auto killed = start({"serve", "--port", "0"});
    const auto killedFolder = folderOf(firmwareLine(killed));
    auto running = start({"serve", "--port", "0", "--state", (folder.path() / "running.json").string()});
    const auto runningFolder = folderOf(firmwareLine(running));
    const auto foreign = folder.path() / "tmp/partmode-bmc-abcdef";
    std::filesystem::create_directory(foreign);
    killed.signal(SIGKILL);
    killed.finish(10s);
    ASSERT_TRUE(std::filesystem::exists(killedFolder / "bmc.pass"));

    auto next = start({"serve", "--port", "0", "--state", (folder.path() / "next.json").string()});
    const auto nextFolder = folderOf(firmwareLine(next));
    EXPECT_FALSE(std::filesystem::exists(killedFolder));
    EXPECT_TRUE(std::filesystem::exists(runningFolder / "bmc.pass"));
    EXPECT_TRUE(std::filesystem::exists(nextFolder / "bmc.pass"));
    EXPECT_TRUE(std::filesystem::exists(foreign));

    stop(running);
    stop(next);
    EXPECT_FALSE(std::filesystem::exists(runningFolder));
    EXPECT_FALSE(std::filesystem::exists(nextFolder));
}

TEST_F(SimServe, ListensOnTheAddressItIsGiven)
{
    auto serve = start({"serve", "--port", "0", "--address", "127.0.0.2"});
    const auto firmware = firmwareLine(serve);
    EXPECT_EQ(firmware.at("host"), "127.0.0.2");
    const auto shown = tool(toolBoard(firmware), {"show", "partition", "pci_express_mode", "0"});
    EXPECT_EQ(shown.out, "pci_express_mode: flexible\n");
    EXPECT_EQ(shown.err, "");
    EXPECT_TRUE(shown.exited(0)) << shown.describe();
    stop(serve);

    const HeldPort held("127.0.0.2");
    const auto refused = sim({"serve", "--port", std::to_string(held.port()), "--address", "127.0.0.2"});
    EXPECT_EQ(refused.err, "partmode-sim: UDP port " + std::to_string(held.port()) +
                               " of 127.0.0.2 is already in use by another program; choose another --port\n");
    EXPECT_TRUE(refused.exited(1)) << refused.describe();
}

} // namespace
} // namespace partmode::test
