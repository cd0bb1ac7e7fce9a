// The whole front end, from an argument vector through the parsing of every
// command to the embedded simulator, as main() runs it. The input is the
// operator's answer on standard input, then the arguments, each ended by a
// zero byte. Every input starts from the simulator's default state.
#include "FirmwareState.h"
#include "PException.h"
#include "PartModeCmd.h"
#include "ScratchFolder.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::size_t kMaxArguments = 16;

const std::string& defaultState()
{
    static const std::string text = partmode::sim::FirmwareState::defaults().document().dump(2);
    return text;
}

std::string loginName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry != nullptr && entry->pw_name != nullptr ? entry->pw_name : "nobody";
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The operator may operate partitions 0 and 1 only, so the authority
    // check refuses 2 and 3; partitions 4 and 5 are extended partitions.
    const auto board = partmode::fuzz::scratchFolder().write(
        "board.json", R"({"partitions": 4, "extended_partitions": 2, "io_units": 8,
                          "users": {")" +
                          loginName() + R"(": {"privilege": 5, "operable_partitions": [0, 1]}},
                          "firmware": {"transport": "simulator", "state": "firmware.json"},
                          "trace": "/dev/null", "audit": "/dev/null"})");
    ::setenv("PARTMODE_BOARD", board.c_str(), 1);
    ::unsetenv("NLSPATH");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t answerEnd = std::min(input.find('\0'), input.size());
    const auto& folder = partmode::fuzz::scratchFolder();
    const auto answer = folder.write("answer", std::string(input.substr(0, answerEnd)));
    if (std::freopen(answer.c_str(), "r", stdin) == nullptr) {
        std::abort();
    }
    folder.write("firmware.json", defaultState());

    std::vector<std::string> words{"partmode"};
    for (std::size_t at = answerEnd + 1; at < input.size() && words.size() <= kMaxArguments;) {
        const std::size_t end = std::min(input.find('\0', at), input.size());
        words.emplace_back(input.substr(at, end - at));
        at = end + 1;
    }
    std::vector<char*> argv;
    for (auto& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);

    try {
        PartModeCmd partModeCmd;
        partModeCmd.execute(static_cast<int>(words.size()), argv.data());
    } catch (const PException&) {
        // main() ends a platform failure that escapes the command with exit 2.
    }
    return 0;
}
