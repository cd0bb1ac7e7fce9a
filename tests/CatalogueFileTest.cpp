#include "CatalogueFile.h"
#include "MessageCatalogue.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

#ifndef PARTMODE_BUILD_LOCALEDIR
#error "PARTMODE_BUILD_LOCALEDIR must name the locale folder of the build tree"
#endif
#ifndef PARTMODE_SOURCE_DIR
#error "PARTMODE_SOURCE_DIR must name the source tree"
#endif
#ifndef PARTMODE_TEST_CATALOGUES
#error "PARTMODE_TEST_CATALOGUES must name the folder of the test message catalogues"
#endif

namespace {

using partmode::CatalogueFile;

const std::string kEnglishCatalogue = std::string(PARTMODE_BUILD_LOCALEDIR) + "/C/LC_MESSAGES/partmode";

TEST(CatalogueFile, EnglishCatalogueHoldsExactlyTheBuiltInTexts)
{
    const CatalogueFile catalogue(kEnglishCatalogue);
    ASSERT_TRUE(catalogue.isOpen()) << kEnglishCatalogue;
    for (const auto& message : partmode::builtinMessages()) {
        const char* text = catalogue.text(message.id);
        ASSERT_NE(text, nullptr) << message.id;
        EXPECT_STREQ(text, message.text);
    }
}

TEST(CatalogueFile, EnglishCatalogueSourceHoldsNoMessageWithoutBuiltInText)
{
    std::ifstream source(std::string(PARTMODE_SOURCE_DIR) + "/nls/C.msg");
    ASSERT_TRUE(source);
    std::set<int> inSource;
    for (std::string line; std::getline(source, line);) {
        if (!line.empty() && line[0] >= '0' && line[0] <= '9') {
            inSource.insert(std::stoi(line));
        }
    }
    std::set<int> builtIn;
    for (const auto& message : partmode::builtinMessages()) {
        builtIn.insert(message.id);
    }
    EXPECT_EQ(inSource, builtIn);
}

TEST(CatalogueFile, MessageMissingFromTheCatalogueHasNoText)
{
    const CatalogueFile catalogue(kEnglishCatalogue);
    ASSERT_TRUE(catalogue.isOpen());
    EXPECT_EQ(catalogue.text(10045), nullptr);
    EXPECT_EQ(catalogue.text(99999), nullptr);
}

TEST(CatalogueFile, MissingCatalogueIsNotOpenAndHasNoText)
{
    const CatalogueFile catalogue(std::string(PARTMODE_TEST_CATALOGUES) + "/nowhere/partmode");
    EXPECT_FALSE(catalogue.isOpen());
    EXPECT_EQ(catalogue.text(10046), nullptr);
}

TEST(CatalogueFile, FileThatIsNoCatalogueIsNotOpen)
{
    const CatalogueFile catalogue(std::string(PARTMODE_SOURCE_DIR) + "/nls/C.msg");
    EXPECT_FALSE(catalogue.isOpen());
}

TEST(CatalogueFile, NameIsLookedUpThroughNlspath)
{
    const std::string path = std::string(PARTMODE_TEST_CATALOGUES) + "/translated/%N";
    ASSERT_EQ(::setenv("NLSPATH", path.c_str(), 1), 0);
    const CatalogueFile catalogue("partmode");
    ::unsetenv("NLSPATH");
    ASSERT_TRUE(catalogue.isOpen());
    EXPECT_STREQ(catalogue.text(10046), "10046: Befehl ausgeführt: %s");
    EXPECT_STREQ(catalogue.text(10082), "10082: %2$s auf Partition#%1$u");
}

// A catalogue built by hand: header, one entry (set 1 is stored as 2), its
// copy in the other byte order, then the texts.
std::string handMadeCatalogue(std::uint32_t planeSize, std::uint32_t planeDepth, std::uint32_t offset,
                              const std::string& texts)
{
    const std::uint32_t words[] = {0x960408deU, planeSize, planeDepth, 2, 10046, offset, 0, 0, 0};
    std::string content(reinterpret_cast<const char*>(words), sizeof(words));
    return content + texts;
}

std::filesystem::path writeCatalogue(const std::filesystem::path& folder, const std::string& content)
{
    const auto path = folder / "partmode.cat";
    std::ofstream(path, std::ios::binary | std::ios::trunc) << content;
    return path;
}

class HandMadeCatalogue : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "partmode-cat.XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        folder_ = pattern;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }
    std::filesystem::path folder_;
};

TEST_F(HandMadeCatalogue, WellFormedOneGivesItsText)
{
    const CatalogueFile catalogue(writeCatalogue(folder_, handMadeCatalogue(1, 1, 0, std::string("hello\0", 6))));
    ASSERT_TRUE(catalogue.isOpen());
    EXPECT_STREQ(catalogue.text(10046), "hello");
    EXPECT_EQ(catalogue.text(10047), nullptr);
}

TEST_F(HandMadeCatalogue, HeaderClaimingMoreEntriesThanTheFileHoldsIsRefused)
{
    const CatalogueFile catalogue(
        writeCatalogue(folder_, handMadeCatalogue(0x7fffffffU, 0x7fffffffU, 0, std::string("hello\0", 6))));
    EXPECT_FALSE(catalogue.isOpen());
    EXPECT_EQ(catalogue.text(10046), nullptr);
    // 32-bit products that wrap to a small table must not pass either.
    EXPECT_FALSE(CatalogueFile(writeCatalogue(folder_, handMadeCatalogue(0x55555556U, 3, 0, "x"))).isOpen());
    EXPECT_FALSE(CatalogueFile(writeCatalogue(folder_, handMadeCatalogue(0, 1, 0, "x"))).isOpen());
}

TEST_F(HandMadeCatalogue, TextOutsideTheFileOrWithoutItsEndIsNotUsed)
{
    EXPECT_EQ(CatalogueFile(writeCatalogue(folder_, handMadeCatalogue(1, 1, 0x7ffffff0U, std::string("hi\0", 3))))
                  .text(10046),
              nullptr);
    EXPECT_EQ(CatalogueFile(writeCatalogue(folder_, handMadeCatalogue(1, 1, 0, "no end"))).text(10046), nullptr);
}

TEST_F(HandMadeCatalogue, FifoInPlaceOfTheCatalogueIsNotOpenedAndDoesNotBlock)
{
    const auto path = folder_ / "partmode.cat";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    EXPECT_FALSE(CatalogueFile(path).isOpen());
}

} // namespace
