#include "base/Hex.h"

namespace zelor::base {

void appendHex(std::string& out, unsigned char byte, HexCase digits) {
    const char* table = digits == HexCase::lower ? "0123456789abcdef" : "0123456789ABCDEF";
    out += table[byte >> 4U];
    out += table[byte & 15U];
}

std::string hexadecimal(std::string_view bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes)
        appendHex(text, static_cast<unsigned char>(c));
    return text;
}

int hexValue(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

}  // namespace zelor::base
