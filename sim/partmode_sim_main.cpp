#include "BmcServer.h"
#include "Board.h"
#include "FirmwareState.h"
#include "StateError.h"
#include "StateStore.h"

#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace {

using partmode::sim::FirmwareState;
using partmode::sim::StateStore;

constexpr const char* kUsage =
    "usage: partmode-sim [--state FILE] init | show | power on|off PARTITION |\n"
    "                    fault add NETFN CMD CODE [COUNT] | fault clear |\n"
    "                    serve --port N [--state FILE] [--user NAME] [--password-file FILE]\n";

int usage()
{
    std::cerr << kUsage;
    return 64;
}

// A number in decimal or, with 0x, hexadecimal, no greater than `maximum`.
std::optional<unsigned long> number(const std::string& text, unsigned long maximum)
{
    if (text.empty() || text[0] == '-' || text[0] == '+') {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > maximum) {
        return std::nullopt;
    }
    return value;
}

// serve --port N [--state FILE] [--user NAME] [--password-file FILE]
int serve(const std::filesystem::path& statePath, const std::vector<std::string>& words)
{
    partmode::sim::BmcServerOptions options;
    options.state = statePath;
    bool portGiven = false;
    for (std::size_t i = 1; i + 1 < words.size(); i += 2) {
        const auto& option = words[i];
        const auto& value = words[i + 1];
        if (option == "--port") {
            const auto port = number(value, 65535);
            if (!port) {
                return usage();
            }
            options.port = static_cast<unsigned int>(*port);
            portGiven = true;
        } else if (option == "--state") {
            options.state = value;
        } else if (option == "--user" && !value.empty()) {
            options.user = value;
        } else if (option == "--password-file") {
            options.passwordFile = value;
        } else {
            return usage();
        }
    }
    if (!portGiven || words.size() % 2 == 0) {
        return usage();
    }
    return partmode::sim::serveBmc(options);
}

int run(const std::filesystem::path& statePath, const std::vector<std::string>& words)
{
    const StateStore store(statePath);
    const auto& verb = words[0];
    if (verb == "serve") {
        return serve(statePath, words);
    }
    if (verb == "init" && words.size() == 1) {
        store.replace(FirmwareState::defaults());
        return 0;
    }
    if (verb == "show" && words.size() == 1) {
        store.transact([](FirmwareState& state) {
            std::cout << state.document().dump(2) << '\n';
            return false;
        });
        return 0;
    }
    if (verb == "power" && words.size() == 3 && (words[1] == "on" || words[1] == "off")) {
        const auto partition = number(words[2], 255);
        if (!partition) {
            return usage();
        }
        store.transact([&](FirmwareState& state) {
            if (words[1] == "on") {
                state.powerOn(static_cast<unsigned int>(*partition));
            } else {
                state.powerOff(static_cast<unsigned int>(*partition));
            }
            return true;
        });
        return 0;
    }
    if (verb == "fault" && words.size() == 2 && words[1] == "clear") {
        store.transact([](FirmwareState& state) {
            state.setFaults({});
            return true;
        });
        return 0;
    }
    if (verb == "fault" && (words.size() == 5 || words.size() == 6) && words[1] == "add") {
        const auto netFn = number(words[2], 255);
        const auto command = number(words[3], 255);
        const auto code = number(words[4], 255);
        const auto count = words.size() == 6 ? number(words[5], 0xFFFFFFFFUL) : std::optional<unsigned long>(0);
        if (!netFn || !command || !code || !count) {
            return usage();
        }
        partmode::sim::Fault fault;
        fault.netFn = static_cast<std::uint8_t>(*netFn);
        fault.command = static_cast<std::uint8_t>(*command);
        fault.completionCode = static_cast<std::uint8_t>(*code);
        if (words.size() == 6) {
            fault.count = static_cast<unsigned int>(*count);
        }
        store.transact([&](FirmwareState& state) {
            auto faults = state.faults();
            faults.push_back(fault);
            state.setFaults(faults);
            return true;
        });
        return 0;
    }
    return usage();
}

} // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> words(argv + 1, argv + argc);
    std::optional<std::filesystem::path> statePath;
    if (words.size() >= 2 && words[0] == "--state") {
        statePath = words[1];
        words.erase(words.begin(), words.begin() + 2);
    }
    if (words.empty()) {
        return usage();
    }
    try {
        if (!statePath) {
            const auto boardPath = partmode::Board::locate();
            statePath = partmode::Board::load(boardPath).firmware.state;
        }
        return run(*statePath, words);
    } catch (const std::exception& error) {
        std::cerr << "partmode-sim: " << error.what() << '\n';
        return 1;
    }
}
