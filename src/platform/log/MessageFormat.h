#pragma once

#include <string_view>

namespace partmode {

// Checks a printf format against the arguments its caller passes, so that a
// text from a message catalogue on disk is never handed to vsnprintf unless
// it reads exactly those arguments.
class MessageFormat {
public:
    // Widths and precisions above this are refused: no message needs them.
    static constexpr unsigned int kMaxField = 255;

    // True when `format` reads no more arguments than `signature` lists and
    // each with a conversion of the listed kind: 's' a text (%s), 'd' an int
    // (%d, %i), 'u' an unsigned int (%u, %o, %x, %X). Flags, widths up to
    // kMaxField, precisions and %% are allowed; positional conversions (%2$s)
    // are allowed when every conversion is positional and they leave no
    // argument out below the highest one. Refused: %n, '*', length modifiers
    // and every other conversion.
    static bool fits(std::string_view format, std::string_view signature);
};

} // namespace partmode
