#include "CatalogueFile.h"

namespace partmode {
namespace {

// What catopen answers when it fails: (nl_catd) -1.
const nl_catd kClosed = reinterpret_cast<nl_catd>(-1); // NOLINT(performance-no-int-to-ptr)

} // namespace

CatalogueFile::CatalogueFile(const std::string& name) : catalogue_(catopen(name.c_str(), NL_CAT_LOCALE)) {}

CatalogueFile::~CatalogueFile()
{
    if (isOpen()) {
        catclose(catalogue_);
    }
}

bool CatalogueFile::isOpen() const { return catalogue_ != kClosed; }

const char* CatalogueFile::text(int id) const
{
    if (!isOpen()) {
        return nullptr;
    }
    // catgets answers with its last argument when the message is missing.
    return catgets(catalogue_, kSet, id, nullptr);
}

} // namespace partmode
