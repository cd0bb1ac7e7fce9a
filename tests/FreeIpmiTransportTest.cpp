// The LAN and in-band transports under failure: the built partmode against no
// BMC, a BMC that refuses it, a password file it must refuse, a BMC whose
// answers stop in the middle of a set, and a missing in-band device.

#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace {

using nlohmann::json;
using partmode::test::readFile;
using partmode::test::TemporaryDirectory;
using partmode::test::ToolProcess;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// Small, so that every failure ends quickly; the retransmission timeout must
// stay below it.
constexpr unsigned int kSessionTimeoutMs = 1000;
constexpr unsigned int kRetransmissionTimeoutMs = 200;
// What a failing command may take beyond the session timeout on a busy machine.
constexpr auto kSlack = 2000ms;
constexpr auto kRunLimit = 20s;

struct Outcome {
    int exitStatus = -1;
    std::string out;
    std::string err;
    Clock::duration elapsed{};
};

// Runs `argv` with no input and both outputs into files of `folder`; kills it
// when it outlives kRunLimit.
Outcome runProgram(const std::vector<std::string>& argv, const std::vector<std::string>& environment,
                   const TemporaryDirectory& folder)
{
    const auto start = Clock::now();
    ToolProcess run(folder.path(), "run", argv, environment);
    const auto finished = run.finish(std::chrono::duration_cast<std::chrono::milliseconds>(kRunLimit));
    Outcome outcome;
    outcome.elapsed = Clock::now() - start;
    outcome.exitStatus = finished.exitStatus();
    outcome.out = finished.out;
    outcome.err = finished.err;
    return outcome;
}

// A UDP socket on a free loopback port.
class UdpSocket {
public:
    UdpSocket() : fd_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address = loopback(0);
        socklen_t length = sizeof(address);
        if (fd_ < 0 || ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
            ::getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
            throw std::runtime_error("cannot bind a UDP socket on 127.0.0.1");
        }
        port_ = ntohs(address.sin_port);
    }
    UdpSocket(const UdpSocket&) = delete;
    UdpSocket& operator=(const UdpSocket&) = delete;
    ~UdpSocket() { close(); }

    void close()
    {
        if (fd_ >= 0) {
            ::close(fd_);
        }
        fd_ = -1;
    }

    [[nodiscard]] int fd() const { return fd_; }
    [[nodiscard]] unsigned int port() const { return port_; }

    // Datagrams waiting on the socket, read and counted.
    int drain() const
    {
        int count = 0;
        std::vector<char> buffer(2048);
        while (::recv(fd_, buffer.data(), buffer.size(), MSG_DONTWAIT) >= 0) {
            ++count;
        }
        return count;
    }

    static sockaddr_in loopback(unsigned int port)
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        return address;
    }

private:
    int fd_;
    unsigned int port_ = 0;
};

// partmode-sim serve on a state file of its own, stopped with the object.
class Bmc {
public:
    explicit Bmc(const TemporaryDirectory& folder) : state_(folder.path() / "bmc-state.json")
    {
        const auto lineFile = folder.path() / "bmc.out";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, lineFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const std::string program = PARTMODE_SIM_BINARY;
        const std::string state = state_.string();
        std::vector<char*> args{const_cast<char*>(program.c_str()),
                                const_cast<char*>("serve"),
                                const_cast<char*>("--port"),
                                const_cast<char*>("0"),
                                const_cast<char*>("--state"),
                                const_cast<char*>(state.c_str()),
                                nullptr};
        const int spawned = posix_spawn(&pid_, program.c_str(), &actions, nullptr, args.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            throw std::runtime_error("cannot run partmode-sim serve");
        }
        const auto deadline = Clock::now() + 20s;
        while (firmware_.is_null()) {
            const auto line = readFile(lineFile);
            if (line.find('\n') != std::string::npos) {
                firmware_ = json::parse(line);
            } else if (Clock::now() > deadline || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                stop();
                throw std::runtime_error("partmode-sim serve did not start");
            } else {
                std::this_thread::sleep_for(20ms);
            }
        }
    }
    Bmc(const Bmc&) = delete;
    Bmc& operator=(const Bmc&) = delete;
    ~Bmc() { stop(); }

    // The board's firmware object that reaches the BMC, with short timeouts.
    [[nodiscard]] json firmware() const
    {
        json firmware = firmware_;
        firmware["session_timeout_ms"] = kSessionTimeoutMs;
        firmware["retransmission_timeout_ms"] = kRetransmissionTimeoutMs;
        return firmware;
    }
    [[nodiscard]] unsigned int port() const { return firmware_.at("port").get<unsigned int>(); }
    [[nodiscard]] const std::filesystem::path& state() const { return state_; }

private:
    void stop()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            ::waitpid(pid_, nullptr, 0);
        }
        pid_ = -1;
    }

    std::filesystem::path state_;
    pid_t pid_ = -1;
    json firmware_;
};

// Passes datagrams between the tool and the BMC until the tool has sent
// `cutAfter` of them; from then on nothing passes either way, as when a BMC
// stops answering.
class Relay {
public:
    Relay(unsigned int bmcPort, std::optional<int> cutAfter) : cutAfter_(cutAfter)
    {
        const sockaddr_in bmc = UdpSocket::loopback(bmcPort);
        if (::connect(toBmc_.fd(), reinterpret_cast<const sockaddr*>(&bmc), sizeof(bmc)) != 0) {
            throw std::runtime_error("cannot connect the relay to the BMC");
        }
        thread_ = std::thread([this] { pass(); });
    }
    Relay(const Relay&) = delete;
    Relay& operator=(const Relay&) = delete;
    ~Relay()
    {
        stop_ = true;
        thread_.join();
    }

    [[nodiscard]] unsigned int port() const { return fromTool_.port(); }
    [[nodiscard]] int sentByTool() const { return sentByTool_; }

private:
    void pass()
    {
        std::vector<char> buffer(2048);
        sockaddr_in tool{};
        socklen_t toolLength = 0;
        while (!stop_) {
            pollfd fds[2] = {{fromTool_.fd(), POLLIN, 0}, {toBmc_.fd(), POLLIN, 0}};
            if (::poll(fds, 2, 20) <= 0) {
                continue;
            }
            if ((fds[0].revents & POLLIN) != 0) {
                toolLength = sizeof(tool);
                const auto got = ::recvfrom(fromTool_.fd(), buffer.data(), buffer.size(), 0,
                                            reinterpret_cast<sockaddr*>(&tool), &toolLength);
                if (got >= 0 && open()) {
                    ::send(toBmc_.fd(), buffer.data(), static_cast<std::size_t>(got), 0);
                }
                ++sentByTool_;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                const auto got = ::recv(toBmc_.fd(), buffer.data(), buffer.size(), 0);
                if (got >= 0 && open() && toolLength != 0) {
                    ::sendto(fromTool_.fd(), buffer.data(), static_cast<std::size_t>(got), 0,
                             reinterpret_cast<const sockaddr*>(&tool), toolLength);
                }
            }
        }
    }

    // The datagram just received passes while the tool has sent no more
    // than `cutAfter`; the answer to the last of them is lost.
    [[nodiscard]] bool open() const { return !cutAfter_ || sentByTool_ < *cutAfter_; }

    UdpSocket fromTool_;
    UdpSocket toBmc_;
    std::optional<int> cutAfter_;
    std::atomic<int> sentByTool_{0};
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

// One run folder: the board, its trace and audit files, and the tool's runs.
class ToolRun {
public:
    explicit ToolRun(const json& firmware)
    {
        board_ = {{"firmware", firmware}, {"trace", "trace.log"}, {"audit", "audit.log"}};
        writeBoard();
    }

    void setFirmware(const std::string& key, const json& value)
    {
        board_["firmware"][key] = value;
        writeBoard();
    }

    [[nodiscard]] const TemporaryDirectory& folder() const { return folder_; }

    Outcome run(const std::vector<std::string>& words) const
    {
        std::vector<std::string> argv{PARTMODE_BINARY};
        argv.insert(argv.end(), words.begin(), words.end());
        const auto dir = folder_.path().string();
        return runProgram(argv,
                          {"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + dir, "XDG_STATE_HOME=" + dir,
                           "PARTMODE_BOARD=" + (folder_.path() / "board.json").string()},
                          folder_);
    }

    // The trace lines without their "<time> partmode[<pid>]: " prefix.
    [[nodiscard]] std::vector<std::string> trace() const
    {
        std::vector<std::string> lines;
        std::istringstream in(readFile(folder_.path() / "trace.log"));
        for (std::string line; std::getline(in, line);) {
            const auto cut = line.find("]: ");
            lines.push_back(cut == std::string::npos ? line : line.substr(cut + 3));
        }
        return lines;
    }

    [[nodiscard]] std::string audit() const { return readFile(folder_.path() / "audit.log"); }

    void clearLogs() const
    {
        std::filesystem::remove(folder_.path() / "trace.log");
        std::filesystem::remove(folder_.path() / "audit.log");
    }

private:
    void writeBoard() const { folder_.write("board.json", board_.dump(2)); }

    TemporaryDirectory folder_;
    json board_;
};

std::string boardPort(unsigned int port) { return "BMC 127.0.0.1:" + std::to_string(port); }

const std::vector<std::string> kShow{"show", "partition", "pci_express_mode", "0"};
const std::vector<std::string> kSet{"set", "partition", "pci_express_mode", "0", "fixed"};

json lanFirmware(unsigned int port, const std::filesystem::path& passwordFile)
{
    return {{"transport", "lan"},
            {"host", "127.0.0.1"},
            {"port", port},
            {"password_file", passwordFile.string()},
            {"cipher_suite", 3},
            {"workarounds", {"opensesspriv"}},
            {"session_timeout_ms", kSessionTimeoutMs},
            {"retransmission_timeout_ms", kRetransmissionTimeoutMs}};
}

std::filesystem::path writePassword(const TemporaryDirectory& folder, const std::string& password, mode_t mode)
{
    const auto path = folder.write("bmc.pass", password + "\n");
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
    return path;
}

TEST(LanTransport, NoBmcListeningEndsThroughTheFrameWithinTheSessionTimeout)
{
    unsigned int port = 0;
    {
        const UdpSocket probe;
        port = probe.port();
    }
    const TemporaryDirectory secrets;
    ToolRun run(lanFirmware(port, writePassword(secrets, "secret", 0600)));
    const Outcome outcome = run.run(kShow);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "Failed to execute show partition pci_express_mode 0 command.\n");
    EXPECT_EQ(run.trace(),
              (std::vector<std::string>{"20062: IPMI session failed: " + boardPort(port) + ": connection timeout",
                                        "10047: Command failed: show partition pci_express_mode 0 (2054, 5)"}));
    EXPECT_LT(outcome.elapsed, std::chrono::milliseconds(kSessionTimeoutMs) + kSlack);
}

TEST(LanTransport, WrongPasswordIsRefusedByTheBmc)
{
    const TemporaryDirectory folder;
    const Bmc bmc(folder);
    ToolRun run(bmc.firmware());
    run.setFirmware("password_file", writePassword(folder, "not-the-password", 0600).string());
    const Outcome outcome = run.run(kSet);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.err, "Failed to execute set partition pci_express_mode 0 fixed command.\n");
    EXPECT_EQ(run.trace(),
              (std::vector<std::string>{"20062: IPMI session failed: " + boardPort(bmc.port()) + ": password invalid",
                                        "10047: Command failed: set partition pci_express_mode 0 fixed (2054, 3)"}));
    EXPECT_EQ(run.audit(), "");
    EXPECT_LT(outcome.elapsed, std::chrono::milliseconds(kSessionTimeoutMs) + kSlack);
}

// Runs `words` with a board whose password file is `passwordFile` against a
// socket that counts what reaches it: the file is refused with `reason`
// before any packet leaves.
void expectPasswordFileRefused(const std::filesystem::path& passwordFile, const std::vector<std::string>& words,
                               const std::string& reason, int action)
{
    const UdpSocket bmc;
    ToolRun run(lanFirmware(bmc.port(), passwordFile));
    const Outcome outcome = run.run(words);
    std::string command;
    for (const auto& word : words) {
        command += (command.empty() ? "" : " ") + word;
    }
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "partmode: " + passwordFile.string() + ": " + reason + "\nFailed to execute " + command + " command.\n");
    EXPECT_EQ(run.trace(), (std::vector<std::string>{"10047: Command failed: " + command + " (2055, " +
                                                     std::to_string(action) + ")"}));
    EXPECT_EQ(run.audit(), "");
    EXPECT_EQ(bmc.drain(), 0);
}

TEST(LanTransport, PasswordFileThatOthersMayReadIsRefusedBeforeAnyPacket)
{
    const TemporaryDirectory secrets;
    expectPasswordFileRefused(writePassword(secrets, "secret", 0644), kSet,
                              "group or others may access the password file (mode 0644); allow its owner only "
                              "(chmod 600)",
                              7);
}

TEST(LanTransport, PasswordFileThatIsNoRegularFileIsRefused)
{
    const TemporaryDirectory secrets;
    std::filesystem::create_directory(secrets.path() / "bmc.pass");
    std::filesystem::permissions(secrets.path() / "bmc.pass", std::filesystem::perms::owner_all);
    expectPasswordFileRefused(secrets.path() / "bmc.pass", kShow, "the password file is not a regular file", 7);
}

TEST(LanTransport, MissingPasswordFileIsRefused)
{
    const TemporaryDirectory secrets;
    expectPasswordFileRefused(secrets.path() / "absent.pass", kShow,
                              "cannot read the password file: No such file or directory", 1);
}

TEST(LanTransport, PasswordLongerThanIpmiAllowsIsRefused)
{
    const TemporaryDirectory secrets;
    expectPasswordFileRefused(writePassword(secrets, std::string(21, 'x'), 0600), kShow,
                              "the password is longer than 20 bytes", 2);
}

// Cuts the traffic of one set after every possible datagram of the tool. The
// tool ends within the session timeout, writes an audit record only when it
// succeeds, and the state is the one before or the one after the set, never
// anything in between.
TEST(LanTransport, BmcThatStopsAnsweringInTheMiddleOfASetNeverTearsTheState)
{
    const TemporaryDirectory folder;
    const Bmc bmc(folder);
    const std::string initial = R"({"partitions": {"0": {"pci_express_mode": [1, 1]}}})"
                                "\n";
    ToolRun run(bmc.firmware());

    int datagrams = 0;
    std::string changed;
    {
        folder.write("bmc-state.json", initial);
        const Relay relay(bmc.port(), std::nullopt);
        run.setFirmware("port", relay.port());
        const Outcome outcome = run.run(kSet);
        ASSERT_EQ(outcome.exitStatus, 0) << outcome.err;
        datagrams = relay.sentByTool();
        changed = readFile(bmc.state());
    }
    ASSERT_GT(datagrams, 4);
    ASSERT_EQ(json::parse(changed)["partitions"]["0"]["pci_express_mode"], json::parse("[0, 0]"));

    int unchangedFailures = 0;
    int changedFailures = 0;
    for (int cut = 1; cut <= datagrams; ++cut) {
        SCOPED_TRACE("traffic cut after datagram " + std::to_string(cut) + " of " + std::to_string(datagrams));
        run.clearLogs();
        folder.write("bmc-state.json", initial);
        const std::string before = readFile(bmc.state());
        const Relay relay(bmc.port(), cut);
        run.setFirmware("port", relay.port());
        const Outcome outcome = run.run(kSet);
        const std::string after = readFile(bmc.state());

        EXPECT_LT(outcome.elapsed, std::chrono::milliseconds(kSessionTimeoutMs) + kSlack);
        EXPECT_TRUE(after == before || after == changed) << after;
        if (outcome.exitStatus == 0) {
            EXPECT_EQ(after, changed);
            EXPECT_NE(run.audit(), "");
            continue;
        }
        EXPECT_EQ(outcome.exitStatus, 2);
        EXPECT_EQ(outcome.err, "Failed to execute set partition pci_express_mode 0 fixed command.\n");
        EXPECT_EQ(run.audit(), "");
        ASSERT_FALSE(run.trace().empty());
        EXPECT_EQ(run.trace().back().rfind("10047: Command failed: set partition pci_express_mode 0 fixed (2054, ", 0),
                  0U);
        ++(after == before ? unchangedFailures : changedFailures);
    }
    // Both kinds of failure occur: traffic lost before the set request, and
    // the answer to a set that the firmware carried out.
    EXPECT_GT(unchangedFailures, 0);
    EXPECT_GT(changedFailures, 0);
}

TEST(InbandTransport, MissingDeviceEndsThroughTheFrame)
{
    ToolRun run({{"transport", "inband"}, {"driver", "openipmi"}, {"device", "/nonexistent/ipmi0"}});
    const Outcome outcome = run.run(kShow);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "Failed to execute show partition pci_express_mode 0 command.\n");
    EXPECT_EQ(run.trace(), (std::vector<std::string>{
                               "20062: IPMI session failed: in-band device /nonexistent/ipmi0: device not found",
                               "10047: Command failed: show partition pci_express_mode 0 (2054, 6)"}));
}

} // namespace
