#include "MessageFormat.h"

#include <cstddef>
#include <vector>

namespace partmode {
namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Reads the digits at `at`, moving past them. The value saturates just above
// kMaxField, which is enough to refuse it.
unsigned int readNumber(std::string_view text, std::size_t& at)
{
    unsigned int value = 0;
    while (at < text.size() && isDigit(text[at])) {
        if (value <= MessageFormat::kMaxField) {
            value = value * 10 + static_cast<unsigned int>(text[at] - '0');
        }
        ++at;
    }
    return value;
}

bool conversionFits(char kind, char conversion, bool numericFlags)
{
    switch (kind) {
    case 's':
        // '0', '+', ' ' and '#' have no defined meaning with %s.
        return conversion == 's' && !numericFlags;
    case 'd':
        return conversion == 'd' || conversion == 'i';
    case 'u':
        return conversion == 'u' || conversion == 'o' || conversion == 'x' || conversion == 'X';
    default:
        return false;
    }
}

} // namespace

bool MessageFormat::fits(std::string_view format, std::string_view signature)
{
    enum class Style { none, sequential, positional };
    Style style = Style::none;
    std::size_t nextArgument = 0;
    std::vector<bool> used(signature.size(), false);

    for (std::size_t at = 0; at < format.size(); ++at) {
        if (format[at] != '%') {
            continue;
        }
        if (++at >= format.size()) {
            return false;
        }
        if (format[at] == '%') {
            continue;
        }

        std::size_t argument = 0;
        std::size_t position = at;
        const unsigned int index = readNumber(format, position);
        if (position > at && position < format.size() && format[position] == '$') {
            if (style == Style::sequential || index == 0 || index > signature.size()) {
                return false;
            }
            style = Style::positional;
            argument = index - 1;
            at = position + 1;
        } else {
            if (style == Style::positional || nextArgument >= signature.size()) {
                return false;
            }
            style = Style::sequential;
            argument = nextArgument++;
        }

        bool numericFlags = false;
        while (at < format.size()) {
            const char flag = format[at];
            if (flag == '0' || flag == '+' || flag == ' ' || flag == '#' || flag == '\'') {
                numericFlags = true;
            } else if (flag != '-') {
                break;
            }
            ++at;
        }
        if (at < format.size() && format[at] == '*') {
            return false;
        }
        if (readNumber(format, at) > kMaxField) {
            return false;
        }
        if (at < format.size() && format[at] == '.') {
            ++at;
            if (at < format.size() && format[at] == '*') {
                return false;
            }
            if (readNumber(format, at) > kMaxField) {
                return false;
            }
        }
        if (at >= format.size() || !conversionFits(signature[argument], format[at], numericFlags)) {
            return false;
        }
        used[argument] = true;
    }

    if (style == Style::positional) {
        // printf cannot step over an argument whose type no conversion names.
        bool gap = false;
        for (const bool isUsed : used) {
            if (!isUsed) {
                gap = true;
            } else if (gap) {
                return false;
            }
        }
    }
    return true;
}

} // namespace partmode
