// The LAN and in-band transports under failure: the built partmode against no
// BMC, a BMC that refuses it, a password file it must refuse, a BMC whose
// answers stop in the middle of a set, and a missing in-band device.

#include "SystemInterfaceProbe.h"
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
#include <deque>
#include <iostream>
#include <optional>
#include <regex>
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

// partmode-sim serve on a state file of its own, stopped with the object;
// `interfaces` are its port options, and it is up once it printed `lines`
// lines (one for --port, two for --vm-port).
class Bmc {
public:
    // `options`: further options of serve.
    explicit Bmc(const TemporaryDirectory& folder, const std::vector<std::string>& options = {},
                 const std::vector<std::string>& interfaces = {"--port", "0"}, std::size_t lines = 1)
        : state_(folder.path() / "bmc-state.json")
    {
        const auto lineFile = folder.path() / "bmc.out";
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, lineFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const std::string program = PARTMODE_SIM_BINARY;
        const std::string state = state_.string();
        std::vector<char*> args{const_cast<char*>(program.c_str()), const_cast<char*>("serve")};
        for (const auto& word : interfaces) {
            args.push_back(const_cast<char*>(word.c_str()));
        }
        args.push_back(const_cast<char*>("--state"));
        args.push_back(const_cast<char*>(state.c_str()));
        for (const auto& option : options) {
            args.push_back(const_cast<char*>(option.c_str()));
        }
        args.push_back(nullptr);
        const int spawned = posix_spawn(&pid_, program.c_str(), &actions, nullptr, args.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) {
            throw std::runtime_error("cannot run partmode-sim serve");
        }
        const auto deadline = Clock::now() + 20s;
        for (;;) {
            lines_.clear();
            std::istringstream text(readFile(lineFile));
            for (std::string line; std::getline(text, line);) {
                lines_.push_back(line);
            }
            if (lines_.size() >= lines) {
                break;
            }
            if (Clock::now() > deadline || ::waitpid(pid_, nullptr, WNOHANG) == pid_) {
                stop();
                throw std::runtime_error("partmode-sim serve did not start");
            }
            std::this_thread::sleep_for(20ms);
        }
        if (interfaces[0] == "--port") {
            firmware_ = json::parse(lines_.at(0));
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
    // What serve printed once it was up, line by line.
    [[nodiscard]] const std::vector<std::string>& lines() const { return lines_; }

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
    std::vector<std::string> lines_;
};

// Passes datagrams between the tool and the BMC, each `delay` late, until the
// tool has sent `cutAfter` of them; from then on nothing passes either way, as
// when a BMC stops answering.
class Relay {
public:
    Relay(unsigned int bmcPort, std::optional<int> cutAfter, std::chrono::milliseconds delay = 0ms)
        : cutAfter_(cutAfter), delay_(delay)
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
    // A datagram on its way, passed on when it is due.
    struct Pending {
        Clock::time_point due;
        bool toBmc;
        std::string bytes;
    };

    void pass()
    {
        std::vector<char> buffer(2048);
        sockaddr_in tool{};
        socklen_t toolLength = 0;
        std::deque<Pending> pending;
        while (!stop_) {
            for (; !pending.empty() && pending.front().due <= Clock::now(); pending.pop_front()) {
                const auto& datagram = pending.front();
                if (datagram.toBmc) {
                    ::send(toBmc_.fd(), datagram.bytes.data(), datagram.bytes.size(), 0);
                } else {
                    ::sendto(fromTool_.fd(), datagram.bytes.data(), datagram.bytes.size(), 0,
                             reinterpret_cast<const sockaddr*>(&tool), toolLength);
                }
            }
            pollfd fds[2] = {{fromTool_.fd(), POLLIN, 0}, {toBmc_.fd(), POLLIN, 0}};
            if (::poll(fds, 2, pending.empty() ? 20 : 1) <= 0) {
                continue;
            }
            if ((fds[0].revents & POLLIN) != 0) {
                toolLength = sizeof(tool);
                const auto got = ::recvfrom(fromTool_.fd(), buffer.data(), buffer.size(), 0,
                                            reinterpret_cast<sockaddr*>(&tool), &toolLength);
                if (got >= 0 && open()) {
                    pending.push_back(
                        {Clock::now() + delay_, true, std::string(buffer.data(), static_cast<std::size_t>(got))});
                }
                ++sentByTool_;
            }
            if ((fds[1].revents & POLLIN) != 0) {
                const auto got = ::recv(toBmc_.fd(), buffer.data(), buffer.size(), 0);
                if (got >= 0 && open() && toolLength != 0) {
                    pending.push_back(
                        {Clock::now() + delay_, false, std::string(buffer.data(), static_cast<std::size_t>(got))});
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
    std::chrono::milliseconds delay_;
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

    void removeFirmware(const std::string& key)
    {
        board_["firmware"].erase(key);
        writeBoard();
    }

    void setBoard(const std::string& key, const json& value)
    {
        board_[key] = value;
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
              (std::vector<std::string>{"20062: IPMI session failed: " + boardPort(port) +
                                            ": session timeout: " + std::to_string(kSessionTimeoutMs) + " ms passed",
                                        "10047: Command failed: show partition pci_express_mode 0 (2054, 5)"}));
    EXPECT_LT(outcome.elapsed, std::chrono::milliseconds(kSessionTimeoutMs) + kSlack);
}

// The session timeout bounds the whole session, not each exchange: with no
// BMC, and with a BMC whose datagrams each arrive 300 or 600 ms late, every
// run ends (done or failed) within the timeout plus 10 %, process start
// included.
TEST(LanTransport, SessionTimeoutBoundsTheWholeSession)
{
    constexpr unsigned int kBoundedTimeoutMs = 2000;
    const auto bound = std::chrono::milliseconds(kBoundedTimeoutMs * 11 / 10);
    const TemporaryDirectory folder;
    const Bmc bmc(folder);
    ToolRun run(bmc.firmware());
    run.setFirmware("session_timeout_ms", kBoundedTimeoutMs);
    run.setFirmware("retransmission_timeout_ms", 500);
    {
        unsigned int silent = 0;
        {
            const UdpSocket probe;
            silent = probe.port();
        }
        run.setFirmware("port", silent);
        const Outcome outcome = run.run(kShow);
        std::cout << "no BMC: ended after "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(outcome.elapsed).count()
                  << " ms with status " << outcome.exitStatus << std::endl;
        EXPECT_EQ(outcome.exitStatus, 2);
        EXPECT_LT(outcome.elapsed, bound);
        EXPECT_EQ(run.trace().back(), "10047: Command failed: show partition pci_express_mode 0 (2054, 5)");
    }
    for (const auto delay : {300ms, 600ms}) {
        SCOPED_TRACE(std::to_string(delay.count()) + " ms each way");
        run.clearLogs();
        const Relay relay(bmc.port(), std::nullopt, delay);
        run.setFirmware("port", relay.port());
        const Outcome outcome = run.run(kShow);
        std::cout << delay.count() << " ms each way: ended after "
                  << std::chrono::duration_cast<std::chrono::milliseconds>(outcome.elapsed).count()
                  << " ms with status " << outcome.exitStatus << std::endl;
        EXPECT_LT(outcome.elapsed, bound);
        EXPECT_EQ(outcome.exitStatus, 2) << "a show needs more exchanges than fit the timeout at this latency";
        EXPECT_EQ(outcome.err, "Failed to execute show partition pci_express_mode 0 command.\n");
    }
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

std::filesystem::path writeKey(const TemporaryDirectory& folder, const std::string& name, const std::string& key,
                               mode_t mode)
{
    const auto path = folder.write(name, key + "\n");
    std::filesystem::permissions(path, static_cast<std::filesystem::perms>(mode));
    return path;
}

TEST(LanTransport, BmcKeyOfTheBoardOpensTheSessionWithABmcThatHasOne)
{
    const TemporaryDirectory folder;
    const auto key = writeKey(folder, "bmc.key", "kg-of-this-bmc", 0600);
    const Bmc bmc(folder, {"--k-g-file", key.string()});
    ASSERT_EQ(bmc.firmware().value("k_g_file", ""), key.string());
    const ToolRun run(bmc.firmware());
    const Outcome outcome = run.run(kShow);
    EXPECT_EQ(outcome.exitStatus, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "pci_express_mode: flexible\n");
    EXPECT_EQ(outcome.err, "");
}

// The BMC derives the session keys from its K_g, so a board without that key
// (the password alone) or with another one never gets a session.
TEST(LanTransport, BoardWithoutTheBmcsKeyOrWithAnotherOneIsRefused)
{
    const TemporaryDirectory folder;
    const auto key = writeKey(folder, "bmc.key", "kg-of-this-bmc", 0600);
    const Bmc bmc(folder, {"--k-g-file", key.string()});
    ToolRun run(bmc.firmware());
    for (const bool withOtherKey : {false, true}) {
        run.clearLogs();
        if (withOtherKey) {
            run.setFirmware("k_g_file", writeKey(folder, "other.key", "another-key", 0600).string());
        } else {
            run.removeFirmware("k_g_file");
        }
        const Outcome outcome = run.run(kSet);
        EXPECT_EQ(outcome.exitStatus, 2) << withOtherKey;
        EXPECT_EQ(outcome.err, "Failed to execute set partition pci_express_mode 0 fixed command.\n");
        EXPECT_EQ(run.trace(),
                  (std::vector<std::string>{"20062: IPMI session failed: " + boardPort(bmc.port()) + ": k_g invalid",
                                            "10047: Command failed: set partition pci_express_mode 0 fixed (2054, 3)"}))
            << withOtherKey;
        EXPECT_EQ(run.audit(), "");
    }
}

TEST(LanTransport, KeyFileThatOthersMayReadIsRefusedBeforeAnyPacket)
{
    const TemporaryDirectory secrets;
    const UdpSocket bmc;
    ToolRun run(lanFirmware(bmc.port(), writePassword(secrets, "secret", 0600)));
    const auto key = writeKey(secrets, "bmc.key", "kg", 0640);
    run.setFirmware("k_g_file", key.string());
    const Outcome outcome = run.run(kShow);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.err, "partmode: " + key.string() +
                               ": group or others may access the password file (mode 0640); allow its owner only "
                               "(chmod 600)\nFailed to execute show partition pci_express_mode 0 command.\n");
    EXPECT_EQ(run.trace(),
              (std::vector<std::string>{"10047: Command failed: show partition pci_express_mode 0 (2055, 7)"}));
    EXPECT_EQ(bmc.drain(), 0);
}

TEST(Diagnostics, ReasonFollowsTheFailureLineOnlyWhenTheBoardAsks)
{
    ToolRun run({{"transport", "inband"}, {"driver", "openipmi"}, {"device", "/nonexistent/ipmi0"}});
    const std::string failure = "Failed to execute show partition pci_express_mode 0 command.\n";
    for (const char* setting : {"off", "stderr"}) {
        run.setBoard("diagnostics", setting);
        const Outcome outcome = run.run(kShow);
        EXPECT_EQ(outcome.exitStatus, 2);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err,
                  setting == std::string("off")
                      ? failure
                      : failure + "partmode: reason: in-band device /nonexistent/ipmi0: device not found; the IPMI "
                                  "session failed: the host or device cannot be reached or opened (2054, 6)\n");
    }
}

TEST(Diagnostics, ReasonNamesWhatTheBmcSaid)
{
    const TemporaryDirectory folder;
    const Bmc bmc(folder);
    ToolRun run(bmc.firmware());
    run.setFirmware("password_file", writePassword(folder, "not-the-password", 0600).string());
    run.setBoard("diagnostics", "stderr");
    const Outcome outcome = run.run(kSet);
    EXPECT_EQ(outcome.exitStatus, 2);
    EXPECT_EQ(outcome.err, "Failed to execute set partition pci_express_mode 0 fixed command.\npartmode: reason: " +
                               boardPort(bmc.port()) +
                               ": password invalid; the IPMI session failed: refused (2054, 3)\n");
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

// The port of the system interface in serve's QEMU arguments.
unsigned int vmPortOf(const std::string& qemuArguments)
{
    std::smatch match;
    if (!std::regex_match(
            qemuArguments, match,
            std::regex(R"(-chardev socket,id=ipmi0,host=127\.0\.0\.1,port=(\d+),reconnect=10 )"
                       R"(-device ipmi-bmc-extern,id=bmc0,chardev=ipmi0 -device isa-ipmi-kcs,bmc=bmc0)"))) {
        throw std::runtime_error("not the QEMU arguments of a system interface: " + qemuArguments);
    }
    return static_cast<unsigned int>(std::stoul(match[1].str()));
}

TEST(VmSystemInterface, FrameEndsWithTheChecksumAndEscapesTheCodecsOwnBytes)
{
    using partmode::sim::SystemInterfaceProbe;
    EXPECT_EQ(SystemInterfaceProbe::frame({0x5A, 0x18, 0x01}),
              (std::vector<std::uint8_t>{0x5A, 0x18, 0x01, 0x8D, 0xA0}));
    // 0xA0, 0xA1 and 0xAA travel as 0xAA and the byte with bit 4 set; the
    // checksum (here 0xAA itself) is escaped too.
    EXPECT_EQ(SystemInterfaceProbe::frame({0xA0, 0xA1, 0x15}),
              (std::vector<std::uint8_t>{0xAA, 0xB0, 0xAA, 0xB1, 0x15, 0xAA, 0xBA, 0xA0}));
}

// Puts an ipmi_sim that takes two seconds to start first on PATH, for the
// life of the object.
class SlowIpmiSim {
public:
    explicit SlowIpmiSim(const TemporaryDirectory& folder)
        : path_(std::getenv("PATH") != nullptr ? std::getenv("PATH") : "")
    {
        std::string real;
        std::istringstream folders(path_ + ":/usr/bin:/usr/sbin");
        for (std::string entry; real.empty() && std::getline(folders, entry, ':');) {
            if (!entry.empty() && ::access((entry + "/ipmi_sim").c_str(), X_OK) == 0) {
                real = entry + "/ipmi_sim";
            }
        }
        const auto script = folder.write("slow/ipmi_sim", "#!/bin/sh\nsleep 2\nexec '" + real + "' \"$@\"\n");
        std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        ::setenv("PATH", ((folder.path() / "slow").string() + ":" + path_).c_str(), 1);
    }
    SlowIpmiSim(const SlowIpmiSim&) = delete;
    SlowIpmiSim& operator=(const SlowIpmiSim&) = delete;
    ~SlowIpmiSim() { ::setenv("PATH", path_.c_str(), 1); }

private:
    std::string path_;
};

TEST(VmSystemInterface, ServePrintsTheQemuArgumentsOnlyOnceTheSystemInterfaceAnswers)
{
    const TemporaryDirectory folder;
    const SlowIpmiSim slow(folder);
    const Bmc bmc(folder, {}, {"--vm-port", "0"}, 2);
    ASSERT_EQ(bmc.lines().size(), 2U);
    EXPECT_EQ(bmc.lines()[1], R"({"transport":"inband","driver":"openipmi","device":"/dev/ipmi0"})");
    // No waiting: a kernel that loads ipmi_si now must find the BMC at once.
    EXPECT_TRUE(partmode::sim::SystemInterfaceProbe::answers(vmPortOf(bmc.lines()[0])));
}

TEST(VmSystemInterface, ServeWithBothInterfacesPrintsTheLanFirmwareFirst)
{
    const TemporaryDirectory folder;
    const Bmc bmc(folder, {}, {"--port", "0", "--vm-port", "0"}, 3);
    ASSERT_EQ(bmc.lines().size(), 3U);
    EXPECT_EQ(json::parse(bmc.lines()[0]).at("transport"), "lan");
    EXPECT_TRUE(partmode::sim::SystemInterfaceProbe::answers(vmPortOf(bmc.lines()[1])));
    EXPECT_EQ(bmc.lines()[2], R"({"transport":"inband","driver":"openipmi","device":"/dev/ipmi0"})");
}

TEST(VmSystemInterface, ServeWithoutAnyPortIsAUsageError)
{
    const TemporaryDirectory folder;
    ToolProcess run(folder.path(), "serve",
                    {PARTMODE_SIM_BINARY, "serve", "--state", (folder.path() / "state.json").string()}, {});
    const auto outcome = run.finish(20s);
    EXPECT_TRUE(outcome.exited(64)) << outcome.describe();
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find("serve [--port N] [--vm-port M]"), std::string::npos) << outcome.err;
}

} // namespace
