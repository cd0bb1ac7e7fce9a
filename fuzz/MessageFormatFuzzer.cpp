// Catalogue texts from a hostile message catalogue. A text that the check
// lets through is formatted with the arguments of its message, as
// lmsg_getmsg does; glibc's own reading of the format must then agree with
// the arguments, argument by argument.
#include "MessageCatalogue.h"
#include "MessageFormat.h"

#include <printf.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

bool readsWhatIsPassed(const char* format, std::string_view signature)
{
    std::array<int, 16> types{};
    const std::size_t count = parse_printf_format(format, types.size(), types.data());
    if (count > signature.size()) {
        return false;
    }
    for (std::size_t i = 0; i < count; ++i) {
        const int expected = signature[i] == 's' ? PA_STRING : PA_INT;
        if (types[i] != expected) {
            return false;
        }
    }
    return true;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void format(const char* text, std::string_view signature)
{
    char buffer[kMessageBufferSize];
    if (signature == "s") {
        std::snprintf(buffer, sizeof(buffer), text, "set partition pci_express_mode 0 fixed");
    } else if (signature == "sdd") {
        std::snprintf(buffer, sizeof(buffer), text, "set partition pci_express_mode 0 fixed", -1, 213);
    } else if (signature == "us") {
        std::snprintf(buffer, sizeof(buffer), text, 4294967295U, "PCI Express Mode=Fixed");
    } else if (signature == "d") {
        std::snprintf(buffer, sizeof(buffer), text, 10047);
    } else {
        // A message with new arguments needs a line here.
        std::abort();
    }
}
#pragma GCC diagnostic pop

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) {
        return 0;
    }
    const auto messages = partmode::builtinMessages();
    const std::string_view signature = messages[data[0] % messages.size()].signature;
    // A catalogue text ends at its first zero byte.
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (!partmode::MessageFormat::fits(text.c_str(), signature)) {
        return 0;
    }
    if (!readsWhatIsPassed(text.c_str(), signature)) {
        std::abort();
    }
    format(text.c_str(), signature);
    return 0;
}
