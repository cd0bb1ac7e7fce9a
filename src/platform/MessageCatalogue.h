#pragma once

#include <cstddef>

// Size of every buffer handed to lmsg_getmsg.
inline constexpr std::size_t kMessageBufferSize = 256;

// Formats catalogue message `id` with the arguments that follow into `buffer`
// (kMessageBufferSize bytes; longer texts are cut) and returns `buffer`.
// Argument types per id: 10046, 10088, 20003, 20052: one text; 10047: a text
// and two ints; 10082, 10083: an unsigned partition number and a text.
const char* lmsg_getmsg(int id, char* buffer, ...);
