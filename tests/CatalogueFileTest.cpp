#include "CatalogueFile.h"
#include "MessageCatalogue.h"

#include <gtest/gtest.h>

#include <cstdlib>
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

} // namespace
