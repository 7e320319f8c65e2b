#include "base/Utf8.h"

#include <array>

namespace zelor::base {

Character characterAt(const std::string& text, std::size_t at) {
    const auto first = static_cast<unsigned char>(text[at]);
    if (first < 0x80) return {first, 1};
    const std::size_t bytes = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
    if (first < 0xc2 || first > 0xf4 || at + bytes > text.size()) return {};
    char32_t code = first & (0x7fU >> bytes);
    for (std::size_t i = 1; i < bytes; ++i) {
        const auto next = static_cast<unsigned char>(text[at + i]);
        if ((next & 0xc0U) != 0x80) return {};
        code = code << 6U | (next & 0x3fU);
    }
    constexpr std::array<char32_t, 5> kLeast = {0, 0, 0x80, 0x800, 0x10000};
    const bool surrogate = code >= 0xd800 && code <= 0xdfff;
    if (code < kLeast.at(bytes) || code > 0x10ffff || surrogate) return {};
    return {code, bytes};
}

bool isText(const std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        const Character character = characterAt(text, at);
        const bool control = (character.code < 0x20 && character.code != '\t' && character.code != '\r') ||
                             character.code == 0x7f;
        if (control || character.code == kInvalidCharacter) return false;
        at += character.bytes;
    }
    return true;
}

bool reordersText(char32_t code) {
    return code == 0x61c || code == 0x200e || code == 0x200f || (code >= 0x202a && code <= 0x202e) ||
           (code >= 0x2066 && code <= 0x2069);
}

}  // namespace zelor::base
