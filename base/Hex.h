#pragma once

#include <string>
#include <string_view>

namespace zelor::base {

enum class HexCase { lower, upper };

/// Appends the two hexadecimal digits of `byte`.
void appendHex(std::string& out, unsigned char byte, HexCase digits = HexCase::lower);
/// The lower-case hexadecimal digits of `bytes`, two for each.
std::string hexadecimal(std::string_view bytes);
/// The value of a hexadecimal digit of either case; -1 for any other character.
int hexValue(char digit);

}  // namespace zelor::base
