#include "CatalogueFile.h"

#include "CheckedFile.h"

#include <byteswap.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

namespace partmode {
namespace {

constexpr std::uint32_t kMagic = 0x960408deU;
// Header: magic, plane size, plane depth; then two tables of three words per
// entry (set, message, string offset), the first in the writer's byte order.
constexpr std::size_t kHeaderWords = 3;
constexpr std::size_t kWordsPerEntry = 3;
// gencat stores set N as N + 1.
constexpr std::uint32_t kStoredSet = static_cast<std::uint32_t>(CatalogueFile::kSet) + 1;

// Where the C library looks when NLSPATH does not find the catalogue.
constexpr const char* kLibraryPath = "/usr/share/locale/%L/%N:/usr/share/locale/%L/LC_MESSAGES/%N:"
                                     "/usr/share/locale/%l/%N:/usr/share/locale/%l/LC_MESSAGES/%N";

// One NLSPATH template with its conversions replaced.
std::string expand(const std::string& pattern, const std::string& name, const std::string& locale)
{
    const std::string language = locale.substr(0, locale.find_first_of("_.@"));
    const auto territoryStart = locale.find('_');
    const std::string territory =
        territoryStart == std::string::npos
            ? std::string()
            : locale.substr(territoryStart + 1, locale.find_first_of(".@", territoryStart) - territoryStart - 1);
    const auto codesetStart = locale.find('.');
    const std::string codeset =
        codesetStart == std::string::npos
            ? std::string()
            : locale.substr(codesetStart + 1, locale.find('@', codesetStart) - codesetStart - 1);
    std::string path;
    for (std::size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != '%' || i + 1 == pattern.size()) {
            path += pattern[i];
            continue;
        }
        switch (pattern[++i]) {
        case 'N':
            path += name;
            break;
        case 'L':
            path += locale;
            break;
        case 'l':
            path += language;
            break;
        case 't':
            path += territory;
            break;
        case 'c':
            path += codeset;
            break;
        case '%':
            path += '%';
            break;
        default:
            path += '%';
            path += pattern[i];
            break;
        }
    }
    return path;
}

} // namespace

CatalogueFile::CatalogueFile(const std::string& name)
{
    for (const auto& path : candidates(name)) {
        if (load(path)) {
            return;
        }
    }
}

std::vector<std::filesystem::path> CatalogueFile::candidates(const std::string& name)
{
    if (name.find('/') != std::string::npos) {
        return {name};
    }
    const char* current = std::setlocale(LC_MESSAGES, nullptr);
    const std::string locale = current != nullptr ? current : "C";
    // NLSPATH is the operator's choice; a privileged run ignores it, as the
    // C library does.
    std::string search;
    if (const char* nlspath = secure_getenv("NLSPATH"); nlspath != nullptr && *nlspath != '\0') {
        search = std::string(nlspath) + ":";
    }
    search += kLibraryPath;
    std::vector<std::filesystem::path> paths;
    std::size_t start = 0;
    while (start <= search.size()) {
        const auto end = std::min(search.find(':', start), search.size());
        if (end > start) {
            paths.emplace_back(expand(search.substr(start, end - start), name, locale));
        }
        start = end + 1;
    }
    return paths;
}

bool CatalogueFile::load(const std::filesystem::path& path)
{
    try {
        content_ = CheckedFile::read(path, {CheckedFile::kMiB, false});
    } catch (const CheckedFile::Refused&) {
        return false;
    }
    if (content_.size() < kHeaderWords * 4) {
        return false;
    }
    std::uint32_t magic = 0;
    std::memcpy(&magic, content_.data(), sizeof(magic));
    if (magic != kMagic && magic != bswap_32(kMagic)) {
        return false;
    }
    swapped_ = magic != kMagic;
    planeSize_ = word(1);
    planeDepth_ = word(2);
    // 64-bit arithmetic: the header's numbers are the file's, not ours.
    const std::uint64_t entries = static_cast<std::uint64_t>(planeSize_) * planeDepth_;
    const std::uint64_t tables = 2 * kWordsPerEntry * entries * 4;
    if (planeSize_ == 0 || tables > content_.size() - kHeaderWords * 4) {
        return false;
    }
    strings_ = kHeaderWords * 4 + static_cast<std::size_t>(tables);
    open_ = true;
    return true;
}

std::uint32_t CatalogueFile::word(std::size_t index) const
{
    std::uint32_t value = 0;
    std::memcpy(&value, content_.data() + index * 4, sizeof(value));
    return swapped_ ? bswap_32(value) : value;
}

const char* CatalogueFile::text(int id) const
{
    if (!open_ || id < 0) {
        return nullptr;
    }
    const auto message = static_cast<std::uint32_t>(id);
    std::uint64_t slot = (static_cast<std::uint64_t>(kStoredSet) * message) % planeSize_;
    for (std::uint32_t level = 0; level < planeDepth_; ++level, slot += planeSize_) {
        const std::size_t entry = kHeaderWords + static_cast<std::size_t>(slot) * kWordsPerEntry;
        if (word(entry) != kStoredSet || word(entry + 1) != message) {
            continue;
        }
        const std::uint64_t offset = word(entry + 2);
        // A text must begin inside the file and end there with its NUL.
        const std::size_t left = content_.size() - strings_;
        if (offset >= left ||
            std::memchr(content_.data() + strings_ + offset, 0, left - static_cast<std::size_t>(offset)) == nullptr) {
            return nullptr;
        }
        return content_.data() + strings_ + offset;
    }
    return nullptr;
}

} // namespace partmode
