#include "BmcServer.h"

#include "PException.h"
#include "PasswordFile.h"
#include "SystemInterfaceProbe.h"
#include "UniqueFd.h"

#include <freeipmi/freeipmi.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <vector>

#ifndef PARTMODE_BMC_MODULE_FROM_BINDIR
#error "PARTMODE_BMC_MODULE_FROM_BINDIR must give the ipmi_sim module relative to the executable's folder"
#endif

namespace partmode::sim {
namespace {

using namespace std::chrono_literals;

constexpr auto kStartTimeout = 15s;
constexpr auto kStopTimeout = 5s;
// ipmi_sim 2.0.33 knows no SHA-256 cipher suite, and it hashes its keys
// with the privilege of the Open Session request, which libfreeipmi's
// workaround "opensesspriv" follows.
constexpr unsigned int kCipherSuite = 3;
constexpr const char* kWorkaround = "opensesspriv";
// ipmi_sim keeps passwords of at most 16 bytes, the IPMI 1.5 limit.
constexpr std::size_t kMaxPasswordLength = 16;

[[noreturn]] void fail(const std::string& reason) { throw std::runtime_error(reason); }

std::string systemError(const std::string& what) { return what + ": " + std::strerror(errno); }

std::filesystem::path temporaryFolder()
{
    const char* base = std::getenv("TMPDIR");
    return base != nullptr && *base != '\0' ? base : "/tmp";
}

constexpr std::string_view kFolderPrefix = "partmode-bmc-";
// Held locked by the server that owns the folder, as long as it runs.
constexpr const char* kOwnerLock = "owner.lock";

// A folder of this server's own for ipmi_sim's files, removed at the end. The
// server holds a lock on a file in it for its whole run, so that a folder
// whose lock is free belongs to a server that is gone, even one killed with
// SIGKILL; ipmi_sim does not inherit the lock.
class RunFolder {
public:
    RunFolder()
    {
        std::string pattern = (temporaryFolder() / (std::string(kFolderPrefix) + "XXXXXX")).string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            fail(systemError("cannot create " + pattern));
        }
        path_ = pattern;
        const auto lockPath = path_ / kOwnerLock;
        lock_.reset(::open(lockPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
        if (!lock_ || ::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0) {
            const auto reason = systemError("cannot lock " + lockPath.string());
            remove();
            fail(reason);
        }
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    ~RunFolder() { remove(); }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

    // Removes the folders under `parent` that servers of this user left when
    // they were killed: those whose owner lock nobody holds. Folders of
    // running servers, of other users, and any without an owner lock (of an
    // older server, or one being set up this instant) are left alone.
    static void removeStale(const std::filesystem::path& parent)
    {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(parent, error)) {
            const auto name = entry.path().filename().string();
            struct stat status {};
            if (name.size() != kFolderPrefix.size() + 6 || name.rfind(kFolderPrefix, 0) != 0 ||
                ::lstat(entry.path().c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
                status.st_uid != ::geteuid()) {
                continue;
            }
            const auto lockPath = entry.path() / kOwnerLock;
            const UniqueFd lock(::open(lockPath.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
            if (lock && ::flock(lock.get(), LOCK_EX | LOCK_NB) == 0) {
                std::error_code ignored;
                std::filesystem::remove_all(entry.path(), ignored);
            }
        }
    }

private:
    void remove()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::filesystem::path path_;
    UniqueFd lock_;
};

void writeFile(const std::filesystem::path& path, const std::string& content, mode_t mode)
{
    const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd || ::write(fd.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        fail(systemError("cannot write " + path.string()));
    }
}

std::filesystem::path findProgram(const std::string& name)
{
    const char* path = std::getenv("PATH");
    std::string folders = std::string(path != nullptr ? path : "") + ":/usr/sbin:/usr/bin";
    std::size_t start = 0;
    while (start <= folders.size()) {
        const auto end = std::min(folders.find(':', start), folders.size());
        const std::filesystem::path candidate = std::filesystem::path(folders.substr(start, end - start)) / name;
        if (end > start && ::access(candidate.c_str(), X_OK) == 0) {
            return candidate;
        }
        start = end + 1;
    }
    fail(name + " not found; it comes with Debian's package openipmi");
}

std::filesystem::path modulePath()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error) {
        fail("cannot find the own executable: " + error.message());
    }
    auto module = (executable.parent_path() / PARTMODE_BMC_MODULE_FROM_BINDIR).lexically_normal();
    if (!std::filesystem::exists(module, error)) {
        fail("the ipmi_sim module " + module.string() + " is missing");
    }
    return module;
}

sockaddr_in socketAddress(const std::string& address, unsigned int port)
{
    sockaddr_in socket{};
    socket.sin_family = AF_INET;
    socket.sin_port = htons(static_cast<std::uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &socket.sin_addr) != 1) {
        fail("the address " + address + " is no IPv4 address");
    }
    return socket;
}

// An interface's port: the LAN interface's UDP port, or the TCP port of the
// system interface for a virtual machine.
struct PortKind {
    int type;
    const char* protocol;
    const char* option;
};

constexpr PortKind kLanPort{SOCK_DGRAM, "UDP", "--port"};
constexpr PortKind kVmPort{SOCK_STREAM, "TCP", "--vm-port"};

std::string portInUse(const PortKind& kind, const std::string& address, unsigned int port)
{
    return std::string(kind.protocol) + " port " + std::to_string(port) + " of " + address +
           " is already in use by another program; choose another " + kind.option;
}

// Binds a socket to the address and port, as ipmi_sim will, and returns the
// port bound. Without SO_REUSEADDR a UDP bind fails when any program holds
// the port, even one that bound it with SO_REUSEADDR as ipmi_sim does. A TCP
// port fails only while a program listens on it, not while closed
// connections linger.
unsigned int claimPort(const PortKind& kind, const std::string& address, unsigned int port)
{
    const UniqueFd fd(::socket(AF_INET, kind.type | SOCK_CLOEXEC, 0));
    sockaddr_in socket = socketAddress(address, port);
    socklen_t length = sizeof(socket);
    const int on = 1;
    if (!fd || (kind.type == SOCK_STREAM && ::setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0)) {
        fail(systemError(std::string("cannot open a ") + kind.protocol + " socket"));
    }
    if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&socket), sizeof(socket)) != 0) {
        if (errno == EADDRINUSE) {
            fail(portInUse(kind, address, port));
        }
        fail(systemError("cannot listen on " + address + ":" + std::to_string(port)));
    }
    if (::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&socket), &length) != 0) {
        fail(systemError(std::string("cannot find a free ") + kind.protocol + " port on " + address));
    }
    return ntohs(socket.sin_port);
}

// The UDP sockets of this network namespace bound to the port on the
// address, or on every address, as the kernel lists them in /proc/net/udp:
// their inode numbers.
std::vector<unsigned long> socketsOnPort(const std::string& address, unsigned int port)
{
    const auto wanted = socketAddress(address, port).sin_addr.s_addr;
    std::ifstream table("/proc/net/udp");
    std::string line;
    std::getline(table, line); // the heading
    std::vector<unsigned long> inodes;
    while (std::getline(table, line)) {
        // sl local_address rem_address st tx_queue:rx_queue tr:tm->when retrnsmt uid timeout inode ...
        std::istringstream fields(line);
        std::string slot;
        std::string local;
        std::string skipped;
        unsigned long inode = 0;
        fields >> slot >> local;
        for (int field = 0; field < 7; ++field) {
            fields >> skipped;
        }
        fields >> inode;
        const auto colon = local.find(':');
        if (!fields || colon == std::string::npos) {
            continue;
        }
        // The address as the kernel keeps it (network order), the port in host order.
        char* end = nullptr;
        const auto bound = static_cast<in_addr_t>(std::strtoul(local.c_str(), &end, 16));
        const auto boundPort = std::strtoul(local.c_str() + colon + 1, nullptr, 16);
        if (end == local.c_str() + colon && boundPort == port &&
            (bound == wanted || bound == INADDR_ANY || wanted == INADDR_ANY)) {
            inodes.push_back(inode);
        }
    }
    return inodes;
}

// Whether the process holds one of the sockets: its descriptors link to
// "socket:[INODE]".
bool holdsSocket(pid_t process, const std::vector<unsigned long>& inodes)
{
    std::error_code error;
    std::filesystem::directory_iterator entry("/proc/" + std::to_string(process) + "/fd", error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        std::error_code unreadable;
        const auto target = std::filesystem::read_symlink(entry->path(), unreadable).string();
        for (const auto inode : inodes) {
            if (!unreadable && target == "socket:[" + std::to_string(inode) + "]") {
                return true;
            }
        }
    }
    return false;
}

// The board file, written whole or not at all: a temporary file beside it,
// renamed over it.
void writeBoard(const std::filesystem::path& path, const std::string& content)
{
    const auto folder = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    std::string pattern = (folder / (path.filename().string() + ".XXXXXX")).string();
    const UniqueFd fd(::mkstemp(pattern.data()));
    if (!fd) {
        fail(systemError("cannot write the board file " + path.string()));
    }
    const bool written = ::fchmod(fd.get(), 0600) == 0 &&
                         ::write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
                         ::fsync(fd.get()) == 0 && ::rename(pattern.c_str(), path.c_str()) == 0;
    if (!written) {
        const auto reason = systemError("cannot write the board file " + path.string());
        ::unlink(pattern.c_str());
        fail(reason);
    }
}

std::string randomPassword()
{
    static constexpr std::string_view kLetters = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
    std::random_device source;
    std::uniform_int_distribution<std::size_t> pick(0, kLetters.size() - 1);
    std::string password;
    for (std::size_t i = 0; i < kMaxPasswordLength; ++i) {
        password += kLetters[pick(source)];
    }
    return password;
}

// ipmi_sim's configuration reads blank-separated words and quoted strings.
void checkConfigWord(const std::string& what, const std::string& value)
{
    for (const char c : value) {
        if (c == '"' || c == '\\' || std::isspace(static_cast<unsigned char>(c)) != 0 ||
            std::iscntrl(static_cast<unsigned char>(c)) != 0) {
            fail(what + " must hold no blanks, quotes, backslashes or control characters for ipmi_sim");
        }
    }
}

std::string configuration(const std::string& address, const std::optional<unsigned int>& port,
                          const std::optional<unsigned int>& vmPort, const std::string& user,
                          const std::string& password, const std::string& key, const std::filesystem::path& module,
                          const std::filesystem::path& state, std::uint32_t iana)
{
    std::ostringstream text;
    text << "name \"partmode\"\n"
         << "set_working_mc 0x20\n";
    if (port) {
        text << "startlan 1\n"
             << "  addr " << address << " " << *port << "\n"
             << "  priv_limit admin\n"
             << "  allowed_auths_callback md5\n"
             << "  allowed_auths_user md5\n"
             << "  allowed_auths_operator md5\n"
             << "  allowed_auths_admin md5\n"
             // Without a GUID, ipmi_sim offers no IPMI 2.0 session.
             << "  guid 7061726d6f64652d626d632d30303031\n"
             << (key.empty() ? std::string() : "  bmc_key \"" + key + "\"\n") << "endlan\n";
    }
    if (vmPort) {
        text << "serial kcs 127.0.0.1 " << *vmPort << " codec VM\n";
    }
    text << "user 2 true \"" << user << "\" \"" << password << "\" admin 32 md5\n"
         << "loadlib \"" << module.string() << "\" \"state=" << state.string() << " iana=" << iana << "\"\n";
    return text.str();
}

// The BMC and its MC at 0x20; without mc_enable no LAN socket opens.
constexpr const char* kCommands = "mc_setbmc 0x20\n"
                                  "mc_add 0x20 0 no-device-sdrs 0x23 9 8 0x9f 0x7ed9 0x0001\n"
                                  "mc_enable 0x20\n";

pid_t startIpmiSim(const std::filesystem::path& program, const std::vector<std::string>& arguments,
                   const sigset_t& unblocked)
{
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>(program.c_str()));
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child < 0) {
        fail(systemError("cannot start ipmi_sim"));
    }
    if (child == 0) {
        // ipmi_sim must not outlive this server, however it ends.
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != parent) {
            ::_exit(127);
        }
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::sigprocmask(SIG_SETMASK, &unblocked, nullptr);
        ::execv(program.c_str(), argv.data());
        ::_exit(127);
    }
    return child;
}

// True once an RMCP+ session with the BMC opens.
bool answers(const std::string& host, unsigned int port, const std::string& user, const std::string& password,
             const std::string& key)
{
    ipmi_ctx_t context = ipmi_ctx_create();
    if (context == nullptr) {
        return false;
    }
    const std::string target = host + ":" + std::to_string(port);
    const bool open = ipmi_ctx_open_outofband_2_0(
                          context, target.c_str(), user.c_str(), password.c_str(),
                          key.empty() ? nullptr : reinterpret_cast<const unsigned char*>(key.data()),
                          static_cast<unsigned int>(key.size()), IPMI_PRIVILEGE_LEVEL_ADMIN, kCipherSuite, 300, 100,
                          IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE, IPMI_FLAGS_DEFAULT) == 0;
    if (open) {
        ipmi_ctx_close(context);
    }
    ipmi_ctx_destroy(context);
    return open;
}

std::string describeEnd(int status)
{
    if (WIFEXITED(status)) {
        return "ipmi_sim ended with exit status " + std::to_string(WEXITSTATUS(status));
    }
    if (WIFSIGNALED(status)) {
        return std::string("ipmi_sim was killed by signal ") + ::strsignal(WTERMSIG(status));
    }
    return "ipmi_sim ended";
}

// Stops ipmi_sim: SIGTERM, then SIGKILL when it does not end in time.
void stop(pid_t child)
{
    ::kill(child, SIGTERM);
    const auto deadline = std::chrono::steady_clock::now() + kStopTimeout;
    while (::waitpid(child, nullptr, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(child, SIGKILL);
            ::waitpid(child, nullptr, 0);
            return;
        }
        std::this_thread::sleep_for(10ms);
    }
}

} // namespace

int serveBmc(const BmcServerOptions& options)
{
    checkConfigWord("the user name", options.user);
    const auto state = std::filesystem::absolute(options.state);
    checkConfigWord("the state file's path", state.string());
    const auto module = modulePath();
    checkConfigWord("the module's path", module.string());
    const auto program = findProgram("ipmi_sim");
    // The wildcard address is reached through loopback.
    const std::string host = options.address == "0.0.0.0" ? "127.0.0.1" : options.address;
    std::optional<unsigned int> port;
    if (options.port) {
        port = claimPort(kLanPort, options.address, *options.port);
    }
    std::optional<unsigned int> vmPort;
    if (options.vmPort) {
        vmPort = claimPort(kVmPort, "127.0.0.1", *options.vmPort);
    }
    if (options.boardFile) {
        const auto folder = options.boardFile->parent_path();
        if (!folder.empty() && !std::filesystem::is_directory(folder)) {
            fail("cannot write the board file " + options.boardFile->string() + ": the folder " + folder.string() +
                 " does not exist");
        }
    }

    RunFolder::removeStale(temporaryFolder());
    const RunFolder folder;
    std::filesystem::path passwordFile;
    if (options.passwordFile) {
        passwordFile = std::filesystem::absolute(*options.passwordFile);
    } else {
        passwordFile = folder.path() / "bmc.pass";
        writeFile(passwordFile, randomPassword() + "\n", 0600);
    }
    std::string password;
    try {
        password = PasswordFile::read(passwordFile);
    } catch (const PException&) {
        return 1; // PasswordFile said why
    }
    checkConfigWord("the password", password);
    if (password.size() > kMaxPasswordLength) {
        fail("ipmi_sim takes passwords of at most 16 bytes");
    }
    std::filesystem::path kgFile;
    std::string key;
    if (options.kgFile) {
        kgFile = std::filesystem::absolute(*options.kgFile);
        try {
            key = PasswordFile::read(kgFile);
        } catch (const PException&) {
            return 1; // PasswordFile said why
        }
        checkConfigWord("the key K_g", key);
    }

    writeFile(folder.path() / "lan.conf",
              configuration(options.address, port, vmPort, options.user, password, key, module, state, options.iana),
              0600);
    writeFile(folder.path() / "commands", kCommands, 0600);
    std::filesystem::create_directory(folder.path() / "ipmi_sim");

    sigset_t stopSignals;
    sigset_t previous;
    ::sigemptyset(&stopSignals);
    ::sigaddset(&stopSignals, SIGINT);
    ::sigaddset(&stopSignals, SIGTERM);
    ::sigaddset(&stopSignals, SIGCHLD);
    ::sigprocmask(SIG_BLOCK, &stopSignals, &previous);
    const pid_t child =
        startIpmiSim(program,
                     {"-c", (folder.path() / "lan.conf").string(), "-f", (folder.path() / "commands").string(), "-s",
                      (folder.path() / "ipmi_sim").string(), "-n"},
                     previous);

    const auto where = [&] {
        std::string text;
        if (port) {
            text = host + ":" + std::to_string(*port);
        }
        if (vmPort) {
            text += std::string(text.empty() ? "" : " and ") + "127.0.0.1:" + std::to_string(*vmPort);
        }
        return text;
    };
    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    for (;;) {
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            std::cerr << "partmode-sim: " << describeEnd(status) << " before it answered on " << where() << std::endl;
            return 1;
        }
        // Another BMC on the port may answer before this one has bound it.
        if ((!port || (holdsSocket(child, socketsOnPort(options.address, *port)) &&
                       answers(host, *port, options.user, password, key))) &&
            (!vmPort || SystemInterfaceProbe::answers(*vmPort))) {
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            stop(child);
            std::cerr << "partmode-sim: ipmi_sim did not answer on " << where() << std::endl;
            return 1;
        }
        std::this_thread::sleep_for(50ms);
    }
    // Two servers that start at the same moment may both have found the UDP
    // port free; each that then finds it shared gives it up.
    if (port && socketsOnPort(options.address, *port).size() > 1) {
        stop(child);
        fail(portInUse(kLanPort, options.address, *port));
    }

    if (port) {
        nlohmann::ordered_json firmware{{"transport", "lan"},
                                        {"host", host},
                                        {"port", *port},
                                        {"username", options.user},
                                        {"password_file", passwordFile.string()},
                                        {"cipher_suite", kCipherSuite},
                                        {"workarounds", {kWorkaround}},
                                        {"iana", options.iana}};
        if (!kgFile.empty()) {
            firmware["k_g_file"] = kgFile.string();
        }
        if (options.boardFile) {
            nlohmann::ordered_json board = options.boardBase;
            board["firmware"] = firmware;
            try {
                writeBoard(*options.boardFile, board.dump(2) + "\n");
            } catch (...) {
                stop(child);
                throw;
            }
        }
        std::cout << firmware.dump() << '\n';
    }
    if (vmPort) {
        std::cout << "-chardev socket,id=ipmi0,host=127.0.0.1,port=" << *vmPort
                  << ",reconnect=10 -device ipmi-bmc-extern,id=bmc0,chardev=ipmi0 -device isa-ipmi-kcs,bmc=bmc0\n";
        const nlohmann::ordered_json firmware{
            {"transport", "inband"}, {"driver", "openipmi"}, {"device", "/dev/ipmi0"}};
        std::cout << firmware.dump() << '\n';
    }
    std::cout << std::flush;

    for (;;) {
        siginfo_t signal{};
        if (::sigwaitinfo(&stopSignals, &signal) < 0) {
            continue;
        }
        if (signal.si_signo != SIGCHLD) {
            stop(child);
            return 0;
        }
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            std::cerr << "partmode-sim: " << describeEnd(status) << std::endl;
            return 1;
        }
    }
}

} // namespace partmode::sim
