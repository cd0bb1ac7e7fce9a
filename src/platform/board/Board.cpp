#include "Board.h"

#include "CheckedFile.h"
#include "FreeIpmiOptions.h"
#include "PException.h"
#include "PlatformError.h"

#include <nlohmann/json.hpp>

#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <set>
#include <stdexcept>
#include <system_error>

namespace partmode {
namespace {

using nlohmann::json;

[[noreturn]] void fail(const std::string& reason) { throw std::runtime_error(reason); }

// The board file exists but cannot be read, as opposed to one that does not parse.
class Unreadable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// The reason a board file cannot be read, in the system's words.
std::string cannotRead(int error)
{
    return error != 0 ? "cannot read the board file: " + std::string(std::strerror(error))
                      : "cannot read the board file";
}

std::string envValue(const char* name)
{
    // secure_getenv answers null in a set-user-ID process, so such a process
    // never takes its board from the caller's environment.
    const char* value = secure_getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::filesystem::path defaultStateDirectory()
{
    // A privileged run keeps its state in the home of its effective user,
    // never in a folder its caller chose or owns.
    if (CheckedFile::privileged()) {
        const passwd* entry = getpwuid(geteuid());
        const std::string home = entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "/";
        return std::filesystem::path(home) / ".local" / "state" / "partmode";
    }
    if (const auto xdg = envValue("XDG_STATE_HOME"); !xdg.empty() && xdg.front() == '/') {
        return std::filesystem::path(xdg) / "partmode";
    }
    std::string home = envValue("HOME");
    if (home.empty()) {
        if (const passwd* entry = getpwuid(getuid()); entry != nullptr && entry->pw_dir != nullptr) {
            home = entry->pw_dir;
        }
    }
    if (home.empty()) {
        home = "/";
    }
    return std::filesystem::path(home) / ".local" / "state" / "partmode";
}

void checkKeys(const json& object, const std::set<std::string>& known, const std::string& where)
{
    for (const auto& item : object.items()) {
        // Keys that begin with "_" are comments, so a board file can explain itself.
        if (!item.key().starts_with('_') && known.count(item.key()) == 0) {
            fail("unknown key \"" + where + item.key() + "\"");
        }
    }
}

unsigned int readCount(const json& object, const char* key, unsigned int fallback, unsigned int minimum,
                       unsigned int maximum, const std::string& where = "")
{
    const auto found = object.find(key);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_number_integer() || found->get<long long>() < minimum || found->get<long long>() > maximum) {
        fail("\"" + where + key + "\" must be a whole number from " + std::to_string(minimum) + " to " +
             std::to_string(maximum));
    }
    return found->get<unsigned int>();
}

std::string readString(const json& object, const char* key, const std::string& fallback, const std::string& where)
{
    const auto found = object.find(key);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_string()) {
        fail("\"" + where + key + "\" must be a string");
    }
    return found->get<std::string>();
}

// The unit name format is handed to snprintf with one unsigned number, so it
// may hold exactly one %u conversion and nothing else but %%.
void checkUnitNameFormat(const std::string& format)
{
    int conversions = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            continue;
        }
        if (i + 1 < format.size() && format[i + 1] == '%') {
            ++i;
        } else if (i + 1 < format.size() && format[i + 1] == 'u') {
            ++conversions;
            ++i;
        } else {
            fail("\"io_unit_name\" may hold only the conversion %u");
        }
    }
    if (conversions != 1) {
        fail("\"io_unit_name\" must hold the conversion %u exactly once");
    }
}

std::map<std::string, BoardUser> readUsers(const json& users, unsigned int partitionLimit)
{
    if (!users.is_object()) {
        fail("\"users\" must be an object");
    }
    std::map<std::string, BoardUser> result;
    for (const auto& [name, entry] : users.items()) {
        const std::string where = "users." + name + ".";
        if (!entry.is_object()) {
            fail("\"users." + name + "\" must be an object");
        }
        checkKeys(entry, {"privilege", "operable_partitions"}, where);
        BoardUser user;
        if (const auto privilege = entry.find("privilege"); privilege != entry.end()) {
            if (!privilege->is_number_integer() || privilege->get<long long>() < Board::kLowestPrivilege ||
                privilege->get<long long>() > Board::kHighestPrivilege) {
                fail("\"" + where + "privilege\" must be a whole number from " +
                     std::to_string(Board::kLowestPrivilege) + " to " + std::to_string(Board::kHighestPrivilege));
            }
            user.privilege = privilege->get<int>();
        }
        if (const auto operable = entry.find("operable_partitions"); operable != entry.end()) {
            if (!operable->is_array()) {
                fail("\"" + where + "operable_partitions\" must be a list of partition numbers");
            }
            for (const auto& number : *operable) {
                if (!number.is_number_integer() || number.get<long long>() < 0 ||
                    number.get<long long>() >= partitionLimit) {
                    fail("\"" + where + "operable_partitions\" must hold partition numbers from 0 to " +
                         std::to_string(partitionLimit - 1));
                }
                user.operablePartitions.push_back(number.get<unsigned int>());
            }
        }
        result.emplace(name, std::move(user));
    }
    return result;
}

// A privileged run takes no path relative to a folder its caller may choose.
std::filesystem::path resolve(const std::filesystem::path& folder, const std::string& value, const char* key)
{
    std::filesystem::path path(value);
    if (path.is_absolute()) {
        return path;
    }
    if (CheckedFile::privileged()) {
        fail(std::string("\"") + key + "\" must be an absolute path in a privileged run");
    }
    return folder / path;
}

// Refuses a key that appears twice in one object, which JSON parsers
// otherwise settle silently by keeping one of the values.
class DuplicateKeyCheck {
public:
    bool operator()(int /*depth*/, json::parse_event_t event, json& parsed)
    {
        switch (event) {
        case json::parse_event_t::object_start:
            keys_.emplace_back();
            break;
        case json::parse_event_t::object_end:
            keys_.pop_back();
            break;
        case json::parse_event_t::key:
            if (!keys_.back().insert(parsed.get<std::string>()).second) {
                fail("duplicate key \"" + parsed.get<std::string>() + "\"");
            }
            break;
        default:
            break;
        }
        return true;
    }

private:
    std::vector<std::set<std::string>> keys_;
};

std::vector<std::string> readWorkarounds(const json& firmware)
{
    const auto found = firmware.find("workarounds");
    if (found == firmware.end()) {
        return {};
    }
    if (!found->is_array()) {
        fail("\"firmware.workarounds\" must be a list of libfreeipmi workaround names");
    }
    std::vector<std::string> names;
    for (const auto& name : *found) {
        if (!name.is_string() || !freeipmi::outOfBandWorkaround(name.get<std::string>())) {
            fail("\"firmware.workarounds\" holds " + name.dump() + ", which is no IPMI 2.0 workaround of libfreeipmi");
        }
        names.push_back(name.get<std::string>());
    }
    return names;
}

void readLan(const json& firmware, const std::filesystem::path& folder, FirmwareConfig& config)
{
    const std::string where = "firmware.";
    config.host = readString(firmware, "host", config.host, where);
    if (config.host.empty()) {
        fail("\"firmware.host\" must name a host");
    }
    config.port = readCount(firmware, "port", config.port, 1, 65535, where);
    config.username = readString(firmware, "username", config.username, where);
    if (config.username.size() > 16) {
        fail("\"firmware.username\" must be at most 16 bytes long");
    }
    config.passwordFile =
        resolve(folder, readString(firmware, "password_file", "bmc.pass", where), "firmware.password_file");
    if (firmware.contains("k_g_file")) {
        config.kgFile = resolve(folder, readString(firmware, "k_g_file", "", where), "firmware.k_g_file");
    }
    config.privilege = readString(firmware, "privilege", config.privilege, where);
    if (!freeipmi::privilegeLevel(config.privilege)) {
        fail("\"firmware.privilege\" must be \"user\", \"operator\" or \"admin\"");
    }
    config.cipherSuite = readCount(firmware, "cipher_suite", config.cipherSuite, 0, 255, where);
    if (!freeipmi::cipherSuiteSupported(config.cipherSuite)) {
        fail("\"firmware.cipher_suite\" must be one of 0 to 3, 6 to 8, 11, 12 and 15 to 17");
    }
    config.sessionTimeoutMs = readCount(firmware, "session_timeout_ms", config.sessionTimeoutMs, 1, 3600000, where);
    config.retransmissionTimeoutMs =
        readCount(firmware, "retransmission_timeout_ms", config.retransmissionTimeoutMs, 1, 3600000, where);
    if (config.retransmissionTimeoutMs >= config.sessionTimeoutMs) {
        fail("\"firmware.retransmission_timeout_ms\" must be less than \"firmware.session_timeout_ms\"");
    }
    config.workarounds = readWorkarounds(firmware);
}

void readInband(const json& firmware, FirmwareConfig& config)
{
    config.driver = readString(firmware, "driver", config.driver, "firmware.");
    if (!freeipmi::inbandDriver(config.driver)) {
        fail("\"firmware.driver\" must be \"openipmi\", \"kcs\", \"ssif\", \"sunbmc\", \"inteldcmi\" or \"auto\"");
    }
    config.device = readString(firmware, "device", config.device.string(), "firmware.");
    if (!config.device.empty() && !config.device.is_absolute() && CheckedFile::privileged()) {
        fail("\"firmware.device\" must be an absolute path in a privileged run");
    }
}

void readFirmware(const json& firmware, const std::filesystem::path& folder, FirmwareConfig& config)
{
    config.transport = readString(firmware, "transport", config.transport, "firmware.");
    if (config.transport == "simulator") {
        checkKeys(firmware, {"transport", "state"}, "firmware.");
        if (firmware.contains("state")) {
            config.state = resolve(folder, readString(firmware, "state", "", "firmware."), "firmware.state");
        }
        return;
    }
    if (config.transport == "lan") {
        checkKeys(firmware,
                  {"transport", "host", "port", "username", "password_file", "k_g_file", "privilege", "cipher_suite",
                   "session_timeout_ms", "retransmission_timeout_ms", "workarounds", "iana"},
                  "firmware.");
        readLan(firmware, folder, config);
    } else if (config.transport == "inband") {
        checkKeys(firmware, {"transport", "driver", "device", "iana"}, "firmware.");
        readInband(firmware, config);
    } else {
        fail("\"firmware.transport\" names an unknown transport \"" + config.transport + "\"");
    }
    config.iana = readCount(firmware, "iana", config.iana, 0, 0xFFFFFF, "firmware.");
}

// A trace or audit destination: "syslog", or a file path.
void readDestination(const json& document, const char* key, const std::filesystem::path& folder,
                     std::filesystem::path& path, bool& toSyslog)
{
    if (!document.contains(key)) {
        return;
    }
    const std::string value = readString(document, key, "", "");
    toSyslog = value == Board::kSyslog;
    path = toSyslog ? std::filesystem::path() : resolve(folder, value, key);
}

} // namespace

std::filesystem::path Board::installedBoardPath()
{
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (error || !executable.has_parent_path()) {
        return kSystemBoardPath;
    }
    const auto prefix = executable.parent_path().parent_path();
    // The prefix /usr keeps its configuration in /etc, as Debian does.
    if (prefix == "/usr" || prefix == "/") {
        return kSystemBoardPath;
    }
    return prefix / "etc" / "partmode" / "board.json";
}

std::filesystem::path Board::locate()
{
    if (CheckedFile::privileged()) {
        return installedBoardPath();
    }
    if (const auto fromEnvironment = envValue("PARTMODE_BOARD"); !fromEnvironment.empty()) {
        return fromEnvironment;
    }
    std::error_code ignored;
    if (std::filesystem::exists(kSystemBoardPath, ignored)) {
        return kSystemBoardPath;
    }
    return {};
}

Board Board::load(const std::filesystem::path& path)
{
    if (path.empty() && CheckedFile::privileged()) {
        throw Unreadable("a privileged run has no built-in board");
    }
    Board board;
    const auto stateDirectory = defaultStateDirectory();
    board.firmware.state = stateDirectory / "firmware.json";
    board.trace = stateDirectory / "trace.log";
    board.audit = stateDirectory / "audit.log";
    if (path.empty()) {
        return board;
    }
    board.path = path;

    std::string content;
    try {
        content = CheckedFile::read(path, {CheckedFile::kMiB, false});
    } catch (const CheckedFile::Refused& refused) {
        if (refused.error() != 0) {
            throw Unreadable(cannotRead(refused.error()));
        }
        throw Unreadable(std::string("the board file ") + refused.what());
    }
    json document;
    try {
        document = json::parse(content, DuplicateKeyCheck());
    } catch (const json::exception& error) {
        // A syntax error, or a number too large for any type (out_of_range).
        std::string reason = error.what();
        if (const auto end = reason.find("] "); reason.rfind("[json.exception", 0) == 0 && end != std::string::npos) {
            reason.erase(0, end + 2);
        }
        fail(reason);
    }
    if (!document.is_object()) {
        fail("the board must be a JSON object");
    }
    checkKeys(document,
              {"partitions", "extended_partitions", "system_boards", "cpus_per_system_board", "io_units",
               "io_unit_name", "users", "firmware", "trace", "audit", "diagnostics"},
              "");

    // Partition numbers travel as one byte, so all partitions fit in 0..255.
    board.partitions = readCount(document, "partitions", board.partitions, 1, 256);
    board.extendedPartitions =
        readCount(document, "extended_partitions", board.extendedPartitions, 0, 256 - board.partitions);
    board.systemBoards = readCount(document, "system_boards", board.systemBoards, 0, 256);
    board.cpusPerSystemBoard = readCount(document, "cpus_per_system_board", board.cpusPerSystemBoard, 0, 256);
    board.ioUnits = readCount(document, "io_units", board.ioUnits, 0, 256);
    board.ioUnitName = readString(document, "io_unit_name", board.ioUnitName, "");
    checkUnitNameFormat(board.ioUnitName);

    if (const auto users = document.find("users"); users != document.end()) {
        // Operable partitions are a bit mask of one unsigned long.
        board.users = readUsers(*users, 64);
    }

    const auto folder = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
    if (const auto firmware = document.find("firmware"); firmware != document.end()) {
        if (!firmware->is_object()) {
            fail("\"firmware\" must be an object");
        }
        readFirmware(*firmware, folder, board.firmware);
    }
    readDestination(document, "trace", folder, board.trace, board.traceToSyslog);
    readDestination(document, "audit", folder, board.audit, board.auditToSyslog);
    const std::string diagnostics = readString(document, "diagnostics", "off", "");
    if (diagnostics != "off" && diagnostics != "stderr") {
        fail("\"diagnostics\" must be \"off\" or \"stderr\"");
    }
    board.diagnosticsToStderr = diagnostics == "stderr";
    return board;
}

const Board& Board::instance()
{
    struct Loaded {
        std::optional<Board> board;
        std::filesystem::path path;
        std::string reason;
        std::uint8_t action = error::kActionMalformed;
    };
    static const Loaded loaded = [] {
        Loaded result;
        result.path = locate();
        try {
            result.board = load(result.path);
        } catch (const std::exception& error) {
            result.reason = error.what();
            if (dynamic_cast<const Unreadable*>(&error) != nullptr) {
                result.action = error::kActionUnreadable;
            }
            std::cerr << "partmode: " << result.path.string() << ": " << result.reason << std::endl;
        }
        return result;
    }();
    if (!loaded.board) {
        throw PException(1, 0x50, 0x0100, loaded.action, error::kDetailBoard, error::kMessagePlatformFailure,
                         {loaded.path.string(), loaded.reason});
    }
    return *loaded.board;
}

} // namespace partmode
