#pragma once

#include "Firmware.h"
#include "TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode::test {

// A simulator on a state file of its own, for the tests of its requests. The
// file does not exist until a test writes it or a request changes the state.
class SimulatedFirmware : public ::testing::Test {
protected:
    using Bytes = std::vector<std::uint8_t>;

    // The state file starts as `initial`.
    void useState(const std::string& initial) const { folder_.write("firmware.json", initial); }

    RawResponse send(std::uint8_t netFn, std::uint8_t command, const Bytes& request) const
    {
        return firmware_.handle(netFn, command, request);
    }

    [[nodiscard]] std::filesystem::path statePath() const { return folder_.path() / "firmware.json"; }
    [[nodiscard]] std::string stateText() const { return readFile(statePath()); }
    [[nodiscard]] nlohmann::json state() const { return nlohmann::json::parse(stateText()); }

    TemporaryDirectory folder_;
    sim::Firmware firmware_{folder_.path() / "firmware.json"};
};

inline void expectAnswer(const RawResponse& response, std::uint8_t completionCode,
                         const std::vector<std::uint8_t>& data)
{
    EXPECT_EQ(response.completionCode, completionCode);
    EXPECT_EQ(response.data, data);
}

} // namespace partmode::test
