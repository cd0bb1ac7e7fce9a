#include "Board.h"

#include "PException.h"
#include "PlatformError.h"

#include <nlohmann/json.hpp>

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace partmode {
namespace {

using nlohmann::json;

[[noreturn]] void fail(const std::string& reason) { throw std::runtime_error(reason); }

std::string envValue(const char* name)
{
    // secure_getenv answers null in a set-user-ID process, so such a process
    // never takes its board from the caller's environment.
    const char* value = secure_getenv(name);
    return value != nullptr ? std::string(value) : std::string();
}

std::filesystem::path defaultStateDirectory()
{
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
        if (known.count(item.key()) == 0) {
            fail("unknown key \"" + where + item.key() + "\"");
        }
    }
}

unsigned int readCount(const json& object, const char* key, unsigned int fallback, unsigned int minimum,
                       unsigned int maximum)
{
    const auto found = object.find(key);
    if (found == object.end()) {
        return fallback;
    }
    if (!found->is_number_integer() || found->get<long long>() < minimum || found->get<long long>() > maximum) {
        fail(std::string("\"") + key + "\" must be a whole number from " + std::to_string(minimum) + " to " +
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
            if (!privilege->is_number_integer()) {
                fail("\"" + where + "privilege\" must be a whole number");
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

std::filesystem::path resolve(const std::filesystem::path& folder, const std::string& value)
{
    const std::filesystem::path path(value);
    return path.is_absolute() ? path : folder / path;
}

} // namespace

std::filesystem::path Board::locate()
{
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
    Board board;
    const auto stateDirectory = defaultStateDirectory();
    board.firmware.state = stateDirectory / "firmware.json";
    board.trace = stateDirectory / "trace.log";
    board.audit = stateDirectory / "audit.log";
    if (path.empty()) {
        return board;
    }
    board.path = path;

    std::ifstream in(path, std::ios::binary);
    if (!in) {
        fail("cannot read the board file");
    }
    std::ostringstream content;
    content << in.rdbuf();
    if (in.bad()) {
        fail("cannot read the board file");
    }
    json document;
    try {
        document = json::parse(content.str());
    } catch (const json::parse_error& error) {
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
               "io_unit_name", "users", "firmware", "trace", "audit"},
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
        checkKeys(*firmware, {"transport", "state"}, "firmware.");
        board.firmware.transport = readString(*firmware, "transport", board.firmware.transport, "firmware.");
        if (board.firmware.transport != "simulator") {
            fail("\"firmware.transport\" names an unknown transport \"" + board.firmware.transport + "\"");
        }
        if (firmware->contains("state")) {
            board.firmware.state = resolve(folder, readString(*firmware, "state", "", "firmware."));
        }
    }
    if (document.contains("trace")) {
        board.trace = resolve(folder, readString(document, "trace", "", ""));
    }
    if (document.contains("audit")) {
        board.audit = resolve(folder, readString(document, "audit", "", ""));
    }
    return board;
}

const Board& Board::instance()
{
    struct Loaded {
        std::optional<Board> board;
        std::filesystem::path path;
        std::string reason;
    };
    static const Loaded loaded = [] {
        Loaded result;
        result.path = locate();
        try {
            result.board = load(result.path);
        } catch (const std::exception& error) {
            result.reason = error.what();
            std::cerr << "partmode: " << result.path.string() << ": " << result.reason << std::endl;
        }
        return result;
    }();
    if (!loaded.board) {
        throw PException(1, 0x50, 0x0100, error::kActionMalformed, error::kDetailBoard,
                         error::kMessagePlatformFailure, {loaded.path.string(), loaded.reason});
    }
    return *loaded.board;
}

} // namespace partmode
