#include "BmcServer.h"

#include "PException.h"
#include "PasswordFile.h"
#include "UniqueFd.h"

#include <freeipmi/freeipmi.h>
#include <nlohmann/json.hpp>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
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

// A folder of this server's own for ipmi_sim's files, removed at the end.
class RunFolder {
public:
    RunFolder()
    {
        const char* base = std::getenv("TMPDIR");
        std::string pattern = std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/partmode-bmc-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            fail(systemError("cannot create " + pattern));
        }
        path_ = pattern;
    }
    RunFolder(const RunFolder&) = delete;
    RunFolder& operator=(const RunFolder&) = delete;
    ~RunFolder()
    {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
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

unsigned int freeLoopbackPort()
{
    const UniqueFd fd(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    if (!fd || ::bind(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        ::getsockname(fd.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) {
        fail(systemError("cannot find a free UDP port on 127.0.0.1"));
    }
    return ntohs(address.sin_port);
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

std::string configuration(unsigned int port, const std::string& user, const std::string& password,
                          const std::filesystem::path& module, const std::filesystem::path& state, std::uint32_t iana)
{
    std::ostringstream text;
    text << "name \"partmode\"\n"
         << "set_working_mc 0x20\n"
         << "startlan 1\n"
         << "  addr 127.0.0.1 " << port << "\n"
         << "  priv_limit admin\n"
         << "  allowed_auths_callback md5\n"
         << "  allowed_auths_user md5\n"
         << "  allowed_auths_operator md5\n"
         << "  allowed_auths_admin md5\n"
         // Without a GUID, ipmi_sim offers no IPMI 2.0 session.
         << "  guid 7061726d6f64652d626d632d30303031\n"
         << "endlan\n"
         << "user 2 true \"" << user << "\" \"" << password << "\" admin 32 md5\n"
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
bool answers(unsigned int port, const std::string& user, const std::string& password)
{
    ipmi_ctx_t context = ipmi_ctx_create();
    if (context == nullptr) {
        return false;
    }
    const std::string host = "127.0.0.1:" + std::to_string(port);
    const bool open = ipmi_ctx_open_outofband_2_0(context, host.c_str(), user.c_str(), password.c_str(), nullptr, 0,
                                                  IPMI_PRIVILEGE_LEVEL_ADMIN, kCipherSuite, 300, 100,
                                                  IPMI_WORKAROUND_FLAGS_OUTOFBAND_2_0_OPEN_SESSION_PRIVILEGE,
                                                  IPMI_FLAGS_DEFAULT) == 0;
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

    const unsigned int port = options.port != 0 ? options.port : freeLoopbackPort();
    writeFile(folder.path() / "lan.conf", configuration(port, options.user, password, module, state, options.iana),
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

    const auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    for (;;) {
        int status = 0;
        if (::waitpid(child, &status, WNOHANG) == child) {
            std::cerr << "partmode-sim: " << describeEnd(status) << " before it answered on 127.0.0.1:" << port
                      << std::endl;
            return 1;
        }
        if (answers(port, options.user, password)) {
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            stop(child);
            std::cerr << "partmode-sim: ipmi_sim did not answer on 127.0.0.1:" << port << std::endl;
            return 1;
        }
        std::this_thread::sleep_for(50ms);
    }

    const nlohmann::ordered_json firmware{{"transport", "lan"},
                                          {"host", "127.0.0.1"},
                                          {"port", port},
                                          {"username", options.user},
                                          {"password_file", passwordFile.string()},
                                          {"cipher_suite", kCipherSuite},
                                          {"workarounds", {kWorkaround}},
                                          {"iana", options.iana}};
    std::cout << firmware.dump() << std::endl;

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
