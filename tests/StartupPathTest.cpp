// What a run of the tool loads before main(). libfreeipmi (and libgcrypt
// behind it) is loaded only when a board names a BMC, so the tool must not
// name it among the libraries it needs; partmode-sim does, which keeps it in
// the Debian package's Depends.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

namespace {

std::string neededLibraries(const std::string& program)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(("readelf -d '" + program + "'").c_str(), "r"), ::pclose);
    if (!pipe) {
        return {};
    }
    std::string needed;
    char line[512];
    while (std::fgets(line, sizeof(line), pipe.get()) != nullptr) {
        if (std::string(line).find("(NEEDED)") != std::string::npos) {
            needed += line;
        }
    }
    return needed;
}

TEST(StartupPath, TheToolDoesNotNeedLibfreeipmiToStart)
{
    const auto tool = neededLibraries(PARTMODE_BINARY);
    ASSERT_NE(tool.find("libc.so"), std::string::npos) << "readelf gave no answer for " PARTMODE_BINARY;
    EXPECT_EQ(tool.find("libfreeipmi"), std::string::npos) << tool;
    EXPECT_NE(neededLibraries(PARTMODE_SIM_BINARY).find("libfreeipmi"), std::string::npos);
}

} // namespace
