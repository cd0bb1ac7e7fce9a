#pragma once

#include <cstddef>
#include <span>

// Size of every buffer handed to lmsg_getmsg.
inline constexpr std::size_t kMessageBufferSize = 256;

// Formats catalogue message `id` with the arguments that follow into `buffer`
// (kMessageBufferSize bytes; longer texts are cut) and returns `buffer`.
// Argument types per id: 10046, 10088, 20003, 20052: one text; 10047: a text
// and two ints; 10082, 10083: an unsigned partition number and a text; 20061:
// an int (a message id); 20062: a text.
//
// The text comes from the message catalogue "partmode" of the LC_MESSAGES
// locale when one is found, else from the built-in English table. A catalogue
// text whose conversions do not fit the id's arguments is never used: the
// built-in text stands in, and message 20061 traces that once per id.
const char* lmsg_getmsg(int id, char* buffer, ...);

namespace partmode {

// Traced once per process for each message whose catalogue text is refused.
inline constexpr int kUnfitCatalogueTextMessage = 20061;
// Traced by the LAN and in-band transports with libfreeipmi's reason when the
// session with the BMC fails.
inline constexpr int kSessionFailureMessage = 20062;

struct BuiltinMessage {
    int id;
    // The arguments the callers pass, one letter each (see MessageFormat).
    const char* signature;
    const char* text;
};

// Finds and reads the message catalogue of this process now, as the first
// message would.
void loadCatalogue();

// The built-in texts, which the shipped English catalogue holds unchanged.
std::span<const BuiltinMessage> builtinMessages();

} // namespace partmode
