#pragma once

#include <nl_types.h>

#include <string>

namespace partmode {

// An open POSIX message catalogue, closed when the object goes. partmode
// keeps all its messages in one set, numbered by their message ids.
class CatalogueFile {
public:
    static constexpr int kSet = NL_SETD;

    // Opens a catalogue as catopen does with NL_CAT_LOCALE: a name holding a
    // '/' is the catalogue's path; any other name is looked up through
    // NLSPATH and the C library's own folders for the LC_MESSAGES locale.
    // Whether that worked tells isOpen().
    explicit CatalogueFile(const std::string& name);
    ~CatalogueFile();
    CatalogueFile(const CatalogueFile&) = delete;
    CatalogueFile& operator=(const CatalogueFile&) = delete;

    [[nodiscard]] bool isOpen() const;

    // The catalogue's text of message `id`; null when it has none.
    [[nodiscard]] const char* text(int id) const;

private:
    nl_catd catalogue_;
};

} // namespace partmode
