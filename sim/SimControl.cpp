#include "SimControl.h"

#include "BmcServer.h"
#include "Board.h"
#include "Firmware.h"
#include "FirmwareState.h"
#include "StateError.h"
#include "StateStore.h"
#include "UsageError.h"

#include <nlohmann/json.hpp>

#include <arpa/inet.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#ifndef PARTMODE_VERSION
#error "PARTMODE_VERSION must give the version of partmode"
#endif

namespace partmode::sim {
namespace {

using nlohmann::json;

constexpr const char* kUsage = "usage: partmode-sim [--state FILE] init | show | power on|off PARTITION |\n"
                               "                    fault add NETFN CMD CODE [COUNT] [--partition PARTITION] |\n"
                               "                    fault list | fault clear [N] |\n"
                               "                    set partition PARTITION KEY VALUE... | set KEY VALUE... |\n"
                               "                    serve [--port N] [--vm-port M] [--address ADDRESS] [--user NAME]\n"
                               "                          [--password-file FILE] [--k-g-file FILE] [--board FILE]\n"
                               "       partmode-sim --help | --version\n"
                               "Options may stand anywhere. Numbers are decimal or, with 0x, hexadecimal.\n";

[[noreturn]] void refuse(const std::string& reason) { throw UsageError(reason); }

// One option: its name, whether a value follows, and the command it belongs
// to (empty: every command).
struct OptionRow {
    const char* name;
    bool takesValue;
    const char* command;
};

constexpr OptionRow kOptions[] = {
    {"--state", true, ""},         {"--help", false, ""},
    {"--version", false, ""},      {"--partition", true, "fault add"},
    {"--port", true, "serve"},     {"--address", true, "serve"},
    {"--user", true, "serve"},     {"--password-file", true, "serve"},
    {"--k-g-file", true, "serve"}, {"--board", true, "serve"},
    {"--vm-port", true, "serve"},
};

struct CommandLine {
    std::vector<std::string> words;
    std::map<std::string, std::string> options;

    [[nodiscard]] bool has(const std::string& name) const { return options.count(name) != 0; }
    [[nodiscard]] std::optional<std::string> option(const std::string& name) const
    {
        const auto found = options.find(name);
        return found != options.end() ? std::optional(found->second) : std::nullopt;
    }
};

const OptionRow& findOption(const std::string& name)
{
    for (const auto& row : kOptions) {
        if (name == row.name) {
            return row;
        }
    }
    refuse("unknown option " + name);
}

// Options may stand before, between and after the words; "--" ends them.
// A word that starts with '-' and a digit is a (negative) number, left to the
// number checks to refuse.
CommandLine parse(int argc, const char* const* argv)
{
    CommandLine line;
    bool optionsEnded = false;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        const bool looksLikeOption =
            !optionsEnded && word.size() > 1 && word[0] == '-' && (word[1] < '0' || word[1] > '9');
        if (!looksLikeOption) {
            line.words.push_back(word);
            continue;
        }
        if (word == "--") {
            optionsEnded = true;
            continue;
        }
        if (word == "-h") {
            word = "--help";
        }
        std::optional<std::string> value;
        if (const auto equals = word.find('='); equals != std::string::npos && word.rfind("--", 0) == 0) {
            value = word.substr(equals + 1);
            word.erase(equals);
        }
        const auto& row = findOption(word);
        if (!row.takesValue && value) {
            refuse(word + " takes no value");
        }
        if (row.takesValue && !value) {
            if (i + 1 >= argc) {
                refuse(word + " needs a value");
            }
            value = argv[++i];
        }
        if (row.takesValue && value->empty()) {
            refuse(word + " needs a value");
        }
        if (line.has(word)) {
            refuse(word + " is given twice");
        }
        line.options[word] = value.value_or("");
    }
    return line;
}

// A number in decimal or, with 0x, hexadecimal, without a sign, at most `maximum`.
unsigned long number(const std::string& text, const std::string& what, unsigned long maximum)
{
    const bool digits = !text.empty() && text[0] >= '0' && text[0] <= '9';
    char* end = nullptr;
    errno = 0;
    const unsigned long value = digits ? std::strtoul(text.c_str(), &end, 0) : 0;
    if (!digits || *end != '\0') {
        refuse(what + " \"" + text + "\" is not a number");
    }
    if (errno == ERANGE || value > maximum) {
        std::ostringstream reason;
        reason << what << ' ' << text << " is too large; the largest is " << maximum;
        refuse(reason.str());
    }
    return value;
}

std::uint8_t byte(const std::string& text, const std::string& what)
{
    return static_cast<std::uint8_t>(number(text, what, 255));
}

std::string hex(std::uint8_t value)
{
    char text[8];
    std::snprintf(text, sizeof text, "0x%02X", value);
    return text;
}

std::string range(const char* noun, unsigned int first, unsigned int count)
{
    if (count == 0) {
        return std::string("it has no ") + noun + "s";
    }
    if (count == 1) {
        return std::string("it has ") + noun + " " + std::to_string(first) + " only";
    }
    return std::string("it has ") + noun + "s " + std::to_string(first) + " to " + std::to_string(first + count - 1);
}

// What one command works with.
struct Context {
    const CommandLine& line;
    std::vector<std::string> arguments; // the words after the command's own
    Board board;
    std::filesystem::path statePath;

    [[nodiscard]] StateStore store() const { return StateStore(statePath); }

    // A number from `first` to `first + count - 1`, the numbers the board has
    // of what `noun` names.
    [[nodiscard]] unsigned int onBoard(const std::string& text, const char* noun, unsigned int first,
                                       unsigned int count) const
    {
        const auto value = number(text, noun, 255);
        if (value < first || value >= first + count) {
            refuse(std::string(noun) + " " + std::to_string(value) +
                   " is not on this board: " + range(noun, first, count));
        }
        return static_cast<unsigned int>(value);
    }
    [[nodiscard]] unsigned int partition(const std::string& text) const
    {
        return onBoard(text, "partition", 0, board.partitions);
    }
    [[nodiscard]] unsigned int extendedPartition(const std::string& text) const
    {
        return onBoard(text, "extended partition", board.partitions, board.extendedPartitions);
    }
};

void change(const Context& context, const std::function<void(FirmwareState&)>& apply)
{
    context.store().transact([&](FirmwareState& state) {
        apply(state);
        return true;
    });
}

// Reads the state file with every check the firmware makes, creating it with
// the defaults when it does not exist, and returns the state.
FirmwareState checkedState(const Context& context)
{
    std::optional<FirmwareState> checked;
    context.store().transact([&](FirmwareState& state) {
        checked = state;
        return false;
    });
    return *checked;
}

int init(Context& context)
{
    context.store().replace(FirmwareState::defaults(context.board.partitions));
    return 0;
}

// The state as JSON; the request codes of the faults in hex, as they are typed.
int show(Context& context)
{
    json document = checkedState(context).document();
    if (auto faults = document.find("faults"); faults != document.end()) {
        for (auto& fault : *faults) {
            for (const char* key : {"netfn", "cmd", "completion_code"}) {
                if (fault.at(key).is_number()) {
                    fault[key] = hex(fault.at(key).get<std::uint8_t>());
                }
            }
        }
    }
    std::cout << document.dump(2) << '\n';
    return 0;
}

int power(Context& context, bool on)
{
    const auto partition = context.partition(context.arguments[0]);
    change(context, [&](FirmwareState& state) {
        if (on) {
            state.powerOn(partition);
        } else {
            state.powerOff(partition);
        }
    });
    return 0;
}

int powerOn(Context& context) { return power(context, true); }
int powerOff(Context& context) { return power(context, false); }

int faultAdd(Context& context)
{
    const auto& arguments = context.arguments;
    Fault fault;
    fault.netFn = byte(arguments[0], "NETFN");
    fault.command = byte(arguments[1], "CMD");
    fault.completionCode = byte(arguments[2], "CODE");
    const auto* route = Firmware::findRoute(fault.netFn, fault.command);
    if (route == nullptr) {
        refuse("the firmware answers no request " + hex(fault.netFn) + " " + hex(fault.command) +
               ", so the fault would never fire");
    }
    if (arguments.size() == 4) {
        const auto count = number(arguments[3], "COUNT", std::numeric_limits<unsigned int>::max());
        if (count == 0) {
            refuse("COUNT 0 would never fire; leave COUNT out for a fault that stays");
        }
        fault.count = static_cast<unsigned int>(count);
    }
    if (const auto partition = context.line.option("--partition")) {
        const auto target = route->request->target;
        if (target == wire::Target::Partition) {
            fault.partition = static_cast<std::uint8_t>(context.partition(*partition));
        } else if (target == wire::Target::ExtendedPartition) {
            fault.partition = static_cast<std::uint8_t>(context.onBoard(
                *partition, "partition", 0, context.board.partitions + context.board.extendedPartitions));
        } else {
            refuse(std::string("the request ") + route->request->name +
                   " is about no partition; leave out --partition");
        }
    }
    change(context, [&](FirmwareState& state) {
        auto faults = state.faults();
        faults.push_back(fault);
        state.setFaults(faults);
    });
    return 0;
}

int faultList(Context& context)
{
    const auto faults = checkedState(context).faults();
    if (faults.empty()) {
        std::cout << "no faults\n";
        return 0;
    }
    std::cout << "N  NETFN CMD  CODE PARTITION COUNT\n";
    for (std::size_t i = 0; i < faults.size(); ++i) {
        const auto& fault = faults[i];
        char line[96];
        std::snprintf(line, sizeof line, "%-2zu %-5s %-4s %-4s %-9s %s\n", i + 1, hex(fault.netFn).c_str(),
                      hex(fault.command).c_str(), hex(fault.completionCode).c_str(),
                      fault.partition ? std::to_string(*fault.partition).c_str() : "any",
                      fault.count ? std::to_string(*fault.count).c_str() : "always");
        std::cout << line;
    }
    return 0;
}

int faultClear(Context& context)
{
    std::optional<unsigned long> which;
    if (!context.arguments.empty()) {
        which = number(context.arguments[0], "fault number", std::numeric_limits<unsigned int>::max());
    }
    context.store().transact([&](FirmwareState& state) {
        auto faults = state.faults();
        if (which) {
            if (*which == 0 || *which > faults.size()) {
                refuse("there is no fault " + std::to_string(*which) + "; fault list numbers them from 1 to " +
                       std::to_string(faults.size()));
            }
            faults.erase(faults.begin() + static_cast<std::ptrdiff_t>(*which - 1));
        } else {
            faults.clear();
        }
        state.setFaults(faults);
        return true;
    });
    return 0;
}

bool flag(const std::string& text, const std::string& key)
{
    if (text != "true" && text != "false") {
        refuse(key + " takes true or false, not \"" + text + "\"");
    }
    return text == "true";
}

void expectValues(const std::vector<std::string>& values, std::size_t count, const std::string& what)
{
    if (values.size() < count) {
        refuse(what + " needs " + std::to_string(count) + (count == 1 ? " value" : " values"));
    }
    if (values.size() > count) {
        refuse("unexpected word \"" + values[count] + "\" after " + what);
    }
}

// set partition PARTITION KEY VALUE...
int setPartition(Context& context)
{
    const auto& arguments = context.arguments;
    if (arguments.size() < 3) {
        refuse(arguments.size() < 2 ? "set partition needs a partition number and a key"
                                    : "set partition " + arguments[0] + " " + arguments[1] + " needs a value");
    }
    const auto partition = context.partition(arguments[1]);
    const auto& key = arguments[2];
    const std::vector<std::string> values(arguments.begin() + 3, arguments.end());
    if (FirmwareState::isFlagKey(key)) {
        expectValues(values, 1, key);
        const bool value = flag(values[0], key);
        change(context, [&](FirmwareState& state) { state.setPartitionFlag(partition, key, value); });
    } else if (FirmwareState::isByteListKey(key)) {
        Bytes bytes;
        for (const auto& value : values) {
            bytes.push_back(byte(value, key + " byte"));
        }
        change(context, [&](FirmwareState& state) { state.setPartitionBytes(partition, key, bytes); });
    } else {
        refuse("partitions have no key \"" + key + "\"");
    }
    return 0;
}

// set KEY VALUE... for the keys of the whole system.
int set(Context& context)
{
    const auto& arguments = context.arguments;
    if (arguments.empty()) {
        refuse("set needs a key");
    }
    if (arguments[0] == "partition") {
        return setPartition(context);
    }
    const auto& key = arguments[0];
    const std::vector<std::string> values(arguments.begin() + 1, arguments.end());
    if (key == "exclusive_features") {
        expectValues(values, 1, key);
        const bool value = flag(values[0], key);
        change(context, [&](FirmwareState& state) { state.setExclusiveFeatures(value); });
    } else if (key == "defined_partitions") {
        Bytes partitions;
        for (const auto& value : values) {
            partitions.push_back(static_cast<std::uint8_t>(context.partition(value)));
        }
        change(context, [&](FirmwareState& state) { state.setDefinedPartitions(partitions); });
    } else if (key == "extended_partition_parents") {
        expectValues(values, 2, key);
        const auto partition = context.extendedPartition(values[0]);
        std::optional<std::uint8_t> parent;
        if (values[1] != "none") {
            parent = static_cast<std::uint8_t>(context.partition(values[1]));
        }
        change(context, [&](FirmwareState& state) { state.setExtendedPartitionParent(partition, parent); });
    } else if (key == "lan_device_modes") {
        expectValues(values, 2, key);
        const auto unit = context.onBoard(values[0], "I/O unit", 0, context.board.ioUnits);
        const auto mode = byte(values[1], "mode");
        change(context, [&](FirmwareState& state) { state.setLanDeviceMode(unit, mode); });
    } else {
        refuse("the state has no key \"" + key + "\" that set can change");
    }
    return 0;
}

// The board a served BMC would be reached by: the board in use with its
// firmware replaced; paths relative to its folder made absolute.
nlohmann::ordered_json boardBase(const Board& board)
{
    if (board.path.empty()) {
        return nlohmann::ordered_json::object();
    }
    std::ifstream in(board.path);
    auto document = nlohmann::ordered_json::parse(in, nullptr, false);
    if (!document.is_object()) {
        throw std::runtime_error(board.path.string() + ": the board changed while it was read");
    }
    for (const char* key : {"trace", "audit"}) {
        if (const auto value = document.find(key);
            value != document.end() && value->is_string() && value->get<std::string>() != Board::kSyslog) {
            *value = std::filesystem::absolute(board.path.parent_path() / value->get<std::string>()).string();
        }
    }
    document.erase("firmware");
    return document;
}

int serve(Context& context)
{
    const auto& line = context.line;
    const auto port = line.option("--port");
    const auto vmPort = line.option("--vm-port");
    if (!port && !vmPort) {
        refuse("serve needs --port, --vm-port or both (0 takes any free port)");
    }
    BmcServerOptions options;
    if (port) {
        options.port = static_cast<unsigned int>(number(*port, "port", 65535));
    }
    if (vmPort) {
        options.vmPort = static_cast<unsigned int>(number(*vmPort, "port", 65535));
    }
    options.state = context.statePath;
    if (const auto address = line.option("--address")) {
        in_addr parsed{};
        if (::inet_pton(AF_INET, address->c_str(), &parsed) != 1) {
            refuse("--address takes an IPv4 address such as 127.0.0.2, not \"" + *address + "\"");
        }
        options.address = *address;
    }
    if (const auto user = line.option("--user")) {
        options.user = *user;
    }
    if (const auto passwordFile = line.option("--password-file")) {
        options.passwordFile = *passwordFile;
    }
    if (const auto kgFile = line.option("--k-g-file")) {
        options.kgFile = *kgFile;
    }
    for (const char* lanOnly : {"--address", "--board", "--k-g-file"}) {
        if (!port && line.has(lanOnly)) {
            refuse(std::string(lanOnly) + " belongs to the LAN interface; give --port too");
        }
    }
    if (const auto board = line.option("--board")) {
        options.boardFile = *board;
        options.boardBase = boardBase(context.board);
    }
    checkedState(context);
    return serveBmc(options);
}

using Action = int (*)(Context&);

// One command: its words, how many arguments follow them, and what it does.
struct CommandRow {
    const char* words;
    std::size_t minimum;
    std::size_t maximum;
    const char* arguments;
    Action action;
};

constexpr std::size_t kAny = std::numeric_limits<std::size_t>::max();

constexpr CommandRow kCommands[] = {
    {"init", 0, 0, "", &init},
    {"show", 0, 0, "", &show},
    {"power on", 1, 1, "a partition number", &powerOn},
    {"power off", 1, 1, "a partition number", &powerOff},
    {"fault add", 3, 4, "NETFN CMD CODE", &faultAdd},
    {"fault list", 0, 0, "", &faultList},
    {"fault clear", 0, 1, "", &faultClear},
    {"set", 1, kAny, "a key", &set},
    {"serve", 0, 0, "", &serve},
};

std::vector<std::string> split(const std::string& text)
{
    std::istringstream in(text);
    std::vector<std::string> words;
    for (std::string word; in >> word;) {
        words.push_back(word);
    }
    return words;
}

// The command the words name, and the arguments after its own words.
const CommandRow& findCommand(const std::vector<std::string>& words)
{
    if (words.empty()) {
        refuse("no command given");
    }
    std::vector<std::string> followers;
    for (const auto& row : kCommands) {
        const auto own = split(row.words);
        if (own[0] != words[0]) {
            continue;
        }
        if (own.size() == 1 || (words.size() > 1 && own[1] == words[1])) {
            return row;
        }
        followers.push_back(own[1]);
    }
    if (followers.empty()) {
        refuse("unknown command \"" + words[0] + "\"");
    }
    std::string choices;
    for (std::size_t i = 0; i < followers.size(); ++i) {
        choices += (i == 0 ? "" : i + 1 == followers.size() ? " or " : ", ") + followers[i];
    }
    if (words.size() == 1) {
        refuse(words[0] + " needs " + choices);
    }
    refuse(words[0] + " takes " + choices + ", not \"" + words[1] + "\"");
}

void checkOptions(const CommandLine& line, const CommandRow& command)
{
    for (const auto& [name, value] : line.options) {
        const auto& row = findOption(name);
        if (*row.command != '\0' && command.words != std::string(row.command)) {
            refuse(name + " is an option of " + row.command + " only");
        }
    }
}

// A state file named on the command line must lie in a folder that exists;
// partmode-sim does not create one for a mistyped path.
void checkStateFolder(const std::filesystem::path& state)
{
    const auto folder = state.parent_path().empty() ? std::filesystem::path(".") : state.parent_path();
    std::error_code error;
    if (!std::filesystem::is_directory(folder, error)) {
        throw StateError(StateError::Kind::Io,
                         "cannot use the state file " + state.string() + ": the folder " + folder.string() +
                             (std::filesystem::exists(folder, error) ? " is not a folder" : " does not exist"));
    }
}

// The board of this machine; its failures name the board file.
Board loadBoard()
{
    const auto path = Board::locate();
    try {
        return Board::load(path);
    } catch (const std::exception& error) {
        throw std::runtime_error(path.string() + ": " + error.what());
    }
}

} // namespace

int SimControl::run(int argc, const char* const* argv) const
{
    try {
        const CommandLine line = parse(argc, argv);
        if (line.has("--help")) {
            std::cout << kUsage;
            return 0;
        }
        if (line.has("--version")) {
            std::cout << "partmode-sim " << PARTMODE_VERSION << '\n';
            return 0;
        }
        const auto& command = findCommand(line.words);
        checkOptions(line, command);
        Context context{line, {}, loadBoard(), {}};
        const auto ownWords = split(command.words).size();
        context.arguments.assign(line.words.begin() + static_cast<std::ptrdiff_t>(ownWords), line.words.end());
        if (context.arguments.size() < command.minimum) {
            refuse(std::string(command.words) + " needs " + command.arguments);
        }
        if (context.arguments.size() > command.maximum) {
            refuse("unexpected word \"" + context.arguments[command.maximum] + "\" after " + command.words);
        }
        if (const auto state = line.option("--state")) {
            context.statePath = *state;
            checkStateFolder(context.statePath);
        } else {
            context.statePath = context.board.firmware.state;
        }
        return command.action(context);
    } catch (const UsageError& error) {
        std::cerr << "partmode-sim: " << error.what() << '\n' << kUsage;
        return kUsageStatus;
    } catch (const std::exception& error) {
        std::cerr << "partmode-sim: " << error.what() << '\n';
        return 1;
    }
}

} // namespace partmode::sim
