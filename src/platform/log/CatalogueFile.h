#pragma once

#include <nl_types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace partmode {

// A message catalogue in the format gencat writes, read whole into memory
// (at most 1 MiB) through CheckedFile and checked before any text is taken
// from it, so that a crafted header or offset can only make it unusable.
// partmode keeps all its messages in one set, numbered by their message ids.
class CatalogueFile {
public:
    static constexpr int kSet = NL_SETD;

    // Opens a catalogue as catopen does with NL_CAT_LOCALE: a name holding a
    // '/' is the catalogue's path; any other name is looked up through
    // NLSPATH and the C library's own folders for the LC_MESSAGES locale.
    // Whether that worked tells isOpen().
    explicit CatalogueFile(const std::string& name);

    [[nodiscard]] bool isOpen() const { return open_; }

    // The catalogue's text of message `id`; null when it has none.
    [[nodiscard]] const char* text(int id) const;

    // The paths a name stands for, in the order catopen tries them.
    static std::vector<std::filesystem::path> candidates(const std::string& name);

private:
    bool load(const std::filesystem::path& path);
    [[nodiscard]] std::uint32_t word(std::size_t index) const;

    std::string content_;
    bool open_ = false;
    bool swapped_ = false;
    std::uint32_t planeSize_ = 0;
    std::uint32_t planeDepth_ = 0;
    std::size_t strings_ = 0;
};

} // namespace partmode
