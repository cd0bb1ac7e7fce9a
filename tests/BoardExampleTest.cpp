#include "Board.h"
#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

#ifndef PARTMODE_SOURCE_DIR
#error "PARTMODE_SOURCE_DIR must name the source tree"
#endif

namespace {

using nlohmann::json;
using partmode::Board;
using partmode::test::TemporaryDirectory;
using partmode::test::ToolProcess;

const std::filesystem::path kExample = std::filesystem::path(PARTMODE_SOURCE_DIR) / "etc" / "board.json.example";

json example()
{
    std::ifstream in(kExample);
    return json::parse(in);
}

// Every key K of the object has a comment "_K" beside it that says something.
void expectDocumented(const json& object, const std::string& where)
{
    for (const auto& [key, value] : object.items()) {
        if (key.starts_with('_')) {
            EXPECT_TRUE(value.is_string() && !value.get<std::string>().empty()) << where << key;
        } else {
            const auto comment = object.find("_" + key);
            EXPECT_TRUE(comment != object.end()) << where << key << " has no comment _" << key;
        }
    }
}

// The reason the board refuses `document` for, or "" when it takes it.
std::string refusal(const json& document)
{
    const TemporaryDirectory folder;
    try {
        Board::load(folder.write("board.json", document.dump()));
        return "";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

TEST(BoardExample, IsABoardThatLoads)
{
    const Board board = Board::load(kExample);
    EXPECT_EQ(board.partitions, 4U);
    EXPECT_EQ(board.extendedPartitions, 0U);
    ASSERT_TRUE(board.users.has_value());
    EXPECT_EQ(board.users->at("operator2").privilege, 5);
    EXPECT_EQ(board.firmware.transport, "simulator");
}

TEST(BoardExample, LetsRootChangeEveryPartition)
{
    const Board board = Board::load(kExample);
    ASSERT_TRUE(board.users.has_value());
    const auto root = board.users->find("root");
    ASSERT_NE(root, board.users->end()) << "a user database without root locks root out";
    EXPECT_NE(root->second.privilege, 5) << "privilege 5 would confine root to its operable partitions";
}

TEST(BoardExample, KeepsTraceAndAuditInFilesOfTheUser)
{
    // Audit records sent to syslog are lost where no daemon reads /dev/log.
    const Board board = Board::load(kExample);
    EXPECT_FALSE(board.auditToSyslog);
    EXPECT_FALSE(board.traceToSyslog);
    const Board defaults = Board::load({});
    EXPECT_EQ(board.audit, defaults.audit);
    EXPECT_EQ(board.trace, defaults.trace);
    EXPECT_EQ(board.firmware.state, defaults.firmware.state);
}

TEST(BoardExample, WorksAsShippedAgainstTheDefaultSimulatorState)
{
    const TemporaryDirectory home;
    for (const char* partition : {"0", "1", "2", "3"}) {
        ToolProcess run(home.path(), std::string("show") + partition, kExample,
                        {"show", "partition", "pci_express_mode", partition});
        const auto outcome = run.finish();
        EXPECT_TRUE(outcome.exited(0)) << partition << ": " << outcome.describe() << " " << outcome.err;
        EXPECT_EQ(outcome.out, "pci_express_mode: flexible\n") << partition;
        EXPECT_EQ(outcome.err, "") << partition;
    }
    const auto state = home.path() / ".local" / "state" / "partmode";
    EXPECT_TRUE(std::filesystem::is_regular_file(state / "trace.log"));
    if (::getuid() != 0) {
        GTEST_SKIP() << "the change is tried as root only, the one user every board has";
    }
    ToolProcess change(home.path(), "set", kExample, {"set", "partition", "pci_address_mode", "1", "segment", "quiet"});
    const auto outcome = change.finish();
    EXPECT_TRUE(outcome.exited(0)) << outcome.describe() << " " << outcome.err;
    EXPECT_EQ(outcome.err, "");
    std::ifstream audit(state / "audit.log");
    std::string record;
    ASSERT_TRUE(std::getline(audit, record)) << "no audit record";
    EXPECT_EQ(json::parse(record).at("user"), "root");
}

TEST(BoardExample, DocumentsEveryKeyItSets)
{
    const json document = example();
    expectDocumented(document, "");
    expectDocumented(document.at("firmware"), "firmware.");
    for (const auto& [name, user] : document.at("users").items()) {
        expectDocumented(user, "users." + name + ".");
    }
}

TEST(BoardExample, DocumentsOnlyKeysTheBoardKnows)
{
    const json document = example();
    const auto unknown = [](const std::string& key) { return "unknown key \"" + key + "\""; };
    for (const auto& [comment, text] : document.items()) {
        if (comment.starts_with('_') && comment != "_comment") {
            const std::string key = comment.substr(1);
            EXPECT_NE(refusal({{key, nullptr}}), unknown(key)) << comment;
        }
    }
    for (const auto& [comment, text] : document.at("firmware").items()) {
        if (!comment.starts_with('_')) {
            continue;
        }
        // A firmware key belongs to one transport or more; one must know it.
        const std::string key = comment.substr(1);
        bool known = false;
        for (const char* transport : {"simulator", "lan", "inband"}) {
            known = known ||
                    refusal({{"firmware", {{"transport", transport}, {key, nullptr}}}}) != unknown("firmware." + key);
        }
        EXPECT_TRUE(known) << "firmware." << comment;
    }
    for (const auto& [comment, text] : document.at("users").at("operator2").items()) {
        if (!comment.starts_with('_')) {
            continue;
        }
        const std::string key = comment.substr(1);
        EXPECT_NE(refusal({{"users", {{"someone", {{key, nullptr}}}}}}), unknown("users.someone." + key)) << comment;
    }
}

TEST(BoardExample, CommentKeysAreIgnoredButOtherUnknownKeysAreNot)
{
    EXPECT_EQ(refusal({{"_anything", {1, 2, 3}}, {"firmware", {{"_note", "x"}}}}), "");
    EXPECT_EQ(refusal({{"anything_", 1}}), "unknown key \"anything_\"");
}

} // namespace
