#pragma once

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace partmode::test {

// Base64 (RFC 4648, with padding): bytes travel as JSON strings between the
// host and the guest agent, and JSON strings must be valid UTF-8.
inline std::string base64Encode(std::string_view bytes)
{
    static constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = static_cast<std::uint8_t>(bytes[i]) << 16;
        if (i + 1 < bytes.size())
            group |= static_cast<std::uint8_t>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size())
            group |= static_cast<std::uint8_t>(bytes[i + 2]);
        out += kAlphabet[(group >> 18) & 0x3F];
        out += kAlphabet[(group >> 12) & 0x3F];
        out += i + 1 < bytes.size() ? kAlphabet[(group >> 6) & 0x3F] : '=';
        out += i + 2 < bytes.size() ? kAlphabet[group & 0x3F] : '=';
    }
    return out;
}

inline std::string base64Decode(std::string_view text)
{
    const auto value = [](char c) -> std::uint32_t {
        if (c >= 'A' && c <= 'Z')
            return static_cast<std::uint32_t>(c - 'A');
        if (c >= 'a' && c <= 'z')
            return static_cast<std::uint32_t>(c - 'a' + 26);
        if (c >= '0' && c <= '9')
            return static_cast<std::uint32_t>(c - '0' + 52);
        if (c == '+')
            return 62;
        if (c == '/')
            return 63;
        throw std::invalid_argument("not base64");
    };
    if (text.size() % 4 != 0)
        throw std::invalid_argument("base64 text of a length not divisible by 4");
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t i = 0; i < text.size(); i += 4) {
        const std::size_t padding = (text[i + 3] == '=' ? 1 : 0) + (text[i + 2] == '=' ? 1 : 0);
        if (padding > 0 && i + 4 != text.size())
            throw std::invalid_argument("base64 padding inside the text");
        std::uint32_t group = value(text[i]) << 18 | value(text[i + 1]) << 12;
        if (padding < 2)
            group |= value(text[i + 2]) << 6;
        if (padding < 1)
            group |= value(text[i + 3]);
        out += static_cast<char>((group >> 16) & 0xFF);
        if (padding < 2)
            out += static_cast<char>((group >> 8) & 0xFF);
        if (padding < 1)
            out += static_cast<char>(group & 0xFF);
    }
    return out;
}

} // namespace partmode::test
