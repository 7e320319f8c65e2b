#pragma once

#include <cstddef>
#include <string>

/// UTF-8 from untrusted sources.
namespace zelor::base {

/// The code of a byte that begins no well-formed character.
constexpr char32_t kInvalidCharacter = 0xffffffff;

/// A character and the number of bytes it takes.
struct Character {
    char32_t code = kInvalidCharacter;
    std::size_t bytes = 1;
};

/// The character at `at`, which is inside `text`; `kInvalidCharacter` of one byte where no well-formed one
/// begins.
Character characterAt(const std::string& text, std::size_t at);

/// True when `text` is well-formed and has no control characters other than tab and carriage return.
bool isText(const std::string& text);

/// True for marks that change the order in which the text around them is shown.
bool reordersText(char32_t code);

}  // namespace zelor::base
