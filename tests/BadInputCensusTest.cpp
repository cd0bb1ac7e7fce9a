// Every command form, fed missing, extra, empty, huge, non-ASCII and negative
// arguments: the exact refusal on standard error, nothing on standard output,
// the exit status, and a firmware state, trace and audit left as they were.
#include "FirmwareState.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode::test {
namespace {

const std::string kPartitionInvalid = "The specified partition number is invalid.\n";
const std::string kParameterInvalid = "The specified parameter is invalid.\n";

// How a command reads the argument at one position.
enum class Reads {
    ppar,         // a physical partition number
    anyPartition, // any partition number below the count; "-1" passes, as intended
    unit,         // an I/O unit number
    word,         // a mode word
    quiet,        // the optional word "quiet"
};

struct Form {
    std::vector<std::string> words;
    std::vector<std::string> arguments; // a valid set, optional words included
    std::vector<Reads> reads;
    std::size_t required;
};

// The board of the census has 4 partitions (0..3), 2 extended partitions
// and 8 I/O units.
const std::vector<Form> kForms{
    {{"set", "partition", "pci_express_mode"}, {"0", "fixed"}, {Reads::ppar, Reads::word}, 2},
    {{"show", "partition", "pci_express_mode"}, {"0"}, {Reads::anyPartition}, 1},
    {{"set", "partition", "lan_device_mode"},
     {"0", "1", "wol_disable", "quiet"},
     {Reads::ppar, Reads::unit, Reads::word, Reads::quiet},
     3},
    {{"show", "partition", "lan_device_mode"}, {"0"}, {Reads::ppar}, 1},
    {{"set", "partition", "pci_address_mode"}, {"0", "bus", "quiet"}, {Reads::ppar, Reads::word, Reads::quiet}, 2},
    {{"show", "partition", "pci_address_mode"}, {"0"}, {Reads::anyPartition}, 1},
    {{"set", "partition", "memory_mirror_ras_mode"},
     {"0", "capacity_keep", "quiet"},
     {Reads::ppar, Reads::word, Reads::quiet},
     2},
    {{"show", "partition", "memory_mirror_ras_mode"}, {"0"}, {Reads::anyPartition}, 1},
    {{"set", "partition", "memory_operation_mode"},
     {"0", "full_mirror", "quiet"},
     {Reads::ppar, Reads::word, Reads::quiet},
     2},
    {{"show", "partition", "memory_operation_mode"}, {"0"}, {Reads::anyPartition}, 1},
    {{"set", "partition", "dynamic_reconfiguration"},
     {"0", "enable", "quiet"},
     {Reads::ppar, Reads::word, Reads::quiet},
     2},
    {{"show", "partition", "dynamic_reconfiguration"}, {"0"}, {Reads::ppar}, 1},
    {{"set", "partition", "memory_sparing_mode"}, {"0", "auto", "quiet"}, {Reads::ppar, Reads::word, Reads::quiet}, 2},
    {{"show", "partition", "memory_sparing_mode"}, {"0"}, {Reads::anyPartition}, 1},
};

struct Case {
    std::string name;
    std::vector<std::string> arguments;
    std::string err;
    int exit = 1;
    // The firmware refused the request, so the failure is traced.
    bool traced = false;
};

void PrintTo(const Case& census, std::ostream* out) { *out << census.name; }

std::string join(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

std::string refusal(Reads reads)
{
    return reads == Reads::ppar || reads == Reads::anyPartition ? kPartitionInvalid : kParameterInvalid;
}

std::string testName(const Form& form, const std::string& what)
{
    std::string name = form.words.front() + "_" + form.words.back() + "_" + what;
    for (auto& c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) == 0) {
            c = '_';
        }
    }
    return name;
}

// Bad values for one argument, by name: each is refused wherever it stands.
const std::vector<std::pair<std::string, std::string>> kBadValues{
    {"empty", ""},
    {"huge_number", std::string(5000, '9')},
    {"huge_word", std::string(5000, 'x')},
    {"fullwidth_digit", "\xEF\xBC\x90"},
    {"accented", "\xC3\xA9"},
    {"invalid_utf8", "\xFF\xFE"},
    {"nonbreaking_space_after", "0\xC2\xA0"},
    {"negative", "-1"},
};

std::vector<Case> census()
{
    std::vector<Case> cases;
    for (const auto& form : kForms) {
        const auto command = [&](const std::vector<std::string>& arguments) {
            std::vector<std::string> all = form.words;
            all.insert(all.end(), arguments.begin(), arguments.end());
            return all;
        };
        const std::vector<std::string> valid = form.arguments;
        for (std::size_t count = 0; count < form.required; ++count) {
            cases.push_back({testName(form, "missing_from_" + std::to_string(count)),
                             command({valid.begin(), valid.begin() + static_cast<long>(count)}), kParameterInvalid});
        }
        auto extra = valid;
        extra.emplace_back("extra");
        cases.push_back({testName(form, "extra_argument"), command(extra), kParameterInvalid});
        if (valid.size() > form.required) {
            auto unknownOption =
                std::vector<std::string>(valid.begin(), valid.begin() + static_cast<long>(form.required));
            unknownOption.emplace_back("QUIET");
            cases.push_back({testName(form, "option_not_quiet"), command(unknownOption), kParameterInvalid});
        }
        for (std::size_t at = 0; at < valid.size(); ++at) {
            for (const auto& [what, value] : kBadValues) {
                if (value == valid[at]) {
                    continue;
                }
                auto arguments = valid;
                arguments[at] = value;
                Case bad{testName(form, what + "_argument_" + std::to_string(at)), command(arguments),
                         refusal(form.reads[at])};
                if (form.reads[at] == Reads::anyPartition && value == "-1") {
                    // Parsed as the partition number with all 32 bits set, which
                    // the firmware does not know.
                    bad.err = "Failed to execute " + join(command(arguments)) + " command.\n";
                    bad.exit = 2;
                    bad.traced = true;
                }
                cases.push_back(std::move(bad));
            }
        }
    }

    // The front end, before any command exists: the whole line is quoted, cut
    // at 255 bytes.
    const std::string huge(5000, 'w');
    const auto quoted = [](const std::string& line) {
        return ("Failed to execute " + line + " command.").substr(0, 255) + "\n";
    };
    cases.push_back({"front_end_huge_first_word", {huge}, quoted(huge)});
    cases.push_back(
        {"front_end_huge_feature", {"show", "partition", huge, "0"}, quoted("show partition " + huge + " 0")});
    cases.push_back({"front_end_empty_first_word",
                     {"", "partition", "pci_express_mode", "0"},
                     quoted(" partition pci_express_mode 0")});
    cases.push_back({"front_end_non_ascii_feature",
                     {"show", "partition",
                      "pci_express_m\xC3\xB6"
                      "de",
                      "0"},
                     quoted("show partition pci_express_m\xC3\xB6"
                            "de 0")});
    cases.push_back({"front_end_negative_feature", {"set", "partition", "-1"}, quoted("set partition -1")});
    return cases;
}

class BadInputCensus : public ::testing::TestWithParam<Case> {};

TEST_P(BadInputCensus, IsRefusedAndChangesNothing)
{
    const Case& census = GetParam();
    const TemporaryDirectory folder;
    const auto board = folder.write("board.json", R"({"partitions": 4, "extended_partitions": 2, "io_units": 8,
        "firmware": {"transport": "simulator", "state": "firmware.json"},
        "trace": "trace.log", "audit": "audit.log"})");
    const std::string state = sim::FirmwareState::defaults().document().dump(2) + "\n";
    const auto statePath = folder.write("firmware.json", state);

    ToolProcess run(folder.path(), "tool", board, census.arguments, "y\n");
    const auto outcome = run.finish();

    EXPECT_TRUE(outcome.exited(census.exit)) << outcome.describe();
    EXPECT_EQ(outcome.err, census.err);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(readFile(statePath), state);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "audit.log"));
    EXPECT_EQ(std::filesystem::exists(folder.path() / "trace.log"), census.traced);
}

INSTANTIATE_TEST_SUITE_P(EveryCommandForm, BadInputCensus, ::testing::ValuesIn(census()),
                         [](const ::testing::TestParamInfo<Case>& info) { return info.param.name; });

} // namespace
} // namespace partmode::test
