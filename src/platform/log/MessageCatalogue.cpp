#include "MessageCatalogue.h"

#include "CatalogueFile.h"
#include "MessageFormat.h"
#include "OrbTrace.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#ifndef PARTMODE_CATALOGUE_NAME
#error "PARTMODE_CATALOGUE_NAME must name the message catalogue"
#endif
#ifndef PARTMODE_LOCALEDIR
#error "PARTMODE_LOCALEDIR must name the installed locale folder"
#endif
#ifndef PARTMODE_LOCALEDIR_FROM_BINDIR
#error "PARTMODE_LOCALEDIR_FROM_BINDIR must give the locale folder relative to the executable's folder"
#endif

namespace partmode {
namespace {

// Every text starts with its id, so a trace or audit line names its message.
constexpr BuiltinMessage kBuiltin[] = {
    {10046, "s", "10046: Command completed: %s"},
    {10047, "sdd", "10047: Command failed: %s (%d, %d)"},
    {10082, "us", "10082: Partition#%u: %s"},
    {10083, "us", "10083: Partition#%u: %s failed"},
    {10088, "s", "10088: System: %s"},
    {20003, "s", "20003: %s failed"},
    {20052, "s", "20052: %s returned an unexpected value"},
    {kUnfitCatalogueTextMessage, "d",
     "20061: Message %d of the message catalogue does not fit its arguments; the built-in text is used"},
    {kSessionFailureMessage, "s", "20062: IPMI session failed: %s"},
};

const BuiltinMessage* findBuiltin(int id)
{
    const auto found = std::find_if(std::begin(kBuiltin), std::end(kBuiltin),
                                    [id](const BuiltinMessage& message) { return message.id == id; });
    return found != std::end(kBuiltin) ? &*found : nullptr;
}

// Locale names to look for, most specific first, ending with the English
// catalogue "C": de_DE.UTF-8@euro, de_DE.UTF-8, de_DE, de, C.
std::vector<std::string> localeNames()
{
    const char* current = std::setlocale(LC_MESSAGES, nullptr);
    const std::string name = current != nullptr ? current : "C";
    std::vector<std::string> names;
    for (std::string candidate : {name, name.substr(0, name.find('@')), name.substr(0, name.find_first_of(".@")),
                                  name.substr(0, name.find_first_of("_.@")), std::string("C")}) {
        if (!candidate.empty() && candidate.find('/') == std::string::npos &&
            std::find(names.begin(), names.end(), candidate) == names.end()) {
            names.push_back(std::move(candidate));
        }
    }
    return names;
}

// The locale folders of this installation: beside the executable first, so a
// relocated installation finds its own catalogue, then the configured one.
std::vector<std::filesystem::path> localeFolders()
{
    std::vector<std::filesystem::path> folders;
    std::error_code error;
    const auto executable = std::filesystem::read_symlink("/proc/self/exe", error);
    if (!error) {
        folders.push_back((executable.parent_path() / PARTMODE_LOCALEDIR_FROM_BINDIR).lexically_normal());
    }
    const std::filesystem::path configured(PARTMODE_LOCALEDIR);
    if (std::find(folders.begin(), folders.end(), configured) == folders.end()) {
        folders.push_back(configured);
    }
    return folders;
}

std::unique_ptr<CatalogueFile> openCatalogue(const std::string& name)
{
    auto catalogue = std::make_unique<CatalogueFile>(name);
    return catalogue->isOpen() ? std::move(catalogue) : nullptr;
}

std::unique_ptr<CatalogueFile> openProcessCatalogue()
{
    // NLSPATH is the operator's explicit choice; the C library ignores it in
    // a set-user-ID process, and so does this.
    const bool explicitPath = secure_getenv("NLSPATH") != nullptr;
    if (explicitPath) {
        if (auto catalogue = openCatalogue(PARTMODE_CATALOGUE_NAME)) {
            return catalogue;
        }
    }
    const auto names = localeNames();
    for (const auto& folder : localeFolders()) {
        for (const auto& name : names) {
            if (auto catalogue = openCatalogue((folder / name / "LC_MESSAGES" / PARTMODE_CATALOGUE_NAME).string())) {
                return catalogue;
            }
        }
    }
    return explicitPath ? nullptr : openCatalogue(PARTMODE_CATALOGUE_NAME);
}

const CatalogueFile* processCatalogue()
{
    static const std::unique_ptr<CatalogueFile> catalogue = openProcessCatalogue();
    return catalogue.get();
}

void traceUnfitText(int id)
{
    static std::set<int> traced;
    // Marked before tracing: the note is a catalogue message itself.
    if (!traced.insert(id).second) {
        return;
    }
    char note[kMessageBufferSize];
    const trace::OrbTrace trace(1, 3, 1024);
    trace.putLog(0, lmsg_getmsg(kUnfitCatalogueTextMessage, note, id));
}

// The catalogue's text of a message when it reads exactly the arguments the
// built-in text reads; the built-in text otherwise.
const char* chooseFormat(const BuiltinMessage& builtin)
{
    const CatalogueFile* catalogue = processCatalogue();
    const char* text = catalogue != nullptr ? catalogue->text(builtin.id) : nullptr;
    if (text == nullptr || *text == '\0') {
        return builtin.text;
    }
    if (!MessageFormat::fits(text, builtin.signature)) {
        traceUnfitText(builtin.id);
        return builtin.text;
    }
    return text;
}

} // namespace

std::span<const BuiltinMessage> builtinMessages() { return kBuiltin; }

void loadCatalogue() { static_cast<void>(processCatalogue()); }

} // namespace partmode

const char* lmsg_getmsg(int id, char* buffer, ...)
{
    const partmode::BuiltinMessage* builtin = partmode::findBuiltin(id);
    if (builtin == nullptr) {
        std::snprintf(buffer, kMessageBufferSize, "%d: no message text", id);
        return buffer;
    }
    const char* format = partmode::chooseFormat(*builtin);
    va_list arguments;
    va_start(arguments, buffer);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::vsnprintf(buffer, kMessageBufferSize, format, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    return buffer;
}
