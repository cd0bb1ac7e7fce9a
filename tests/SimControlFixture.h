#pragma once

#include "TemporaryDirectory.h"
#include "ToolProcess.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode::test {

// A folder with a board of four partitions, two extended partitions and
// eight I/O units whose simulator state is firmware.json beside it, and runs
// of the built partmode-sim on it, with a temporary folder of their own.
class SimControlFixture : public ::testing::Test {
protected:
    SimControlFixture()
    {
        std::filesystem::create_directory(runs_);
        std::filesystem::create_directory(folder.path() / "tmp");
        writeBoard(R"({"partitions": 4, "extended_partitions": 2, "io_units": 8,
                       "firmware": {"transport": "simulator", "state": "firmware.json"},
                       "trace": "trace.log", "audit": "audit.log"})");
    }

    void writeBoard(const std::string& content) { folder.write("board.json", content); }
    [[nodiscard]] std::filesystem::path board() const { return folder.path() / "board.json"; }
    [[nodiscard]] std::filesystem::path state() const { return folder.path() / "firmware.json"; }

    // The environment of a login shell and the board; `extra` ("NAME=value")
    // adds or replaces variables.
    [[nodiscard]] std::vector<std::string> environment(const std::vector<std::string>& extra = {}) const
    {
        std::vector<std::string> variables{"PATH=/usr/bin:/bin", "LANG=C", "HOME=" + folder.path().string(),
                                           "PARTMODE_BOARD=" + board().string(),
                                           "TMPDIR=" + (folder.path() / "tmp").string()};
        for (const auto& variable : extra) {
            const auto name = variable.substr(0, variable.find('=') + 1);
            std::erase_if(variables, [&](const std::string& known) { return known.rfind(name, 0) == 0; });
            variables.push_back(variable);
        }
        return variables;
    }

    // partmode-sim started with `arguments`, running on.
    ToolProcess start(const std::vector<std::string>& arguments, const std::vector<std::string>& extra = {})
    {
        std::vector<std::string> argv{PARTMODE_SIM_BINARY};
        argv.insert(argv.end(), arguments.begin(), arguments.end());
        return ToolProcess(runs_, "run" + std::to_string(++count_), argv, environment(extra));
    }

    // One run of partmode-sim to its end.
    ToolOutcome sim(const std::vector<std::string>& arguments, const std::vector<std::string>& extra = {})
    {
        return start(arguments, extra).finish(std::chrono::seconds(20));
    }

    // One run of the built partmode with the board `boardPath`.
    ToolOutcome tool(const std::filesystem::path& boardPath, const std::vector<std::string>& arguments)
    {
        return ToolProcess(runs_, "run" + std::to_string(++count_), boardPath, arguments)
            .finish(std::chrono::seconds(30));
    }

    static void expectDone(const ToolOutcome& outcome, const std::string& out = "")
    {
        EXPECT_EQ(outcome.out, out);
        EXPECT_EQ(outcome.err, "");
        EXPECT_TRUE(outcome.exited(0)) << outcome.describe();
    }

    // Refused with the reason, the usage text following it.
    static void expectRefused(const ToolOutcome& outcome, const std::string& reason)
    {
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err.substr(0, outcome.err.find('\n') + 1), "partmode-sim: " + reason + "\n");
        EXPECT_NE(outcome.err.find("\nusage: partmode-sim "), std::string::npos) << outcome.err;
        EXPECT_TRUE(outcome.exited(64)) << outcome.describe();
    }

    static nlohmann::json readJson(const std::filesystem::path& path) { return nlohmann::json::parse(readFile(path)); }

    TemporaryDirectory folder;

private:
    std::filesystem::path runs_ = folder.path() / "runs";
    unsigned int count_ = 0;
};

} // namespace partmode::test
