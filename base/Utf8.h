#pragma once

#include <cstddef>
#include <string>

/// UTF-8 that comes from anywhere.
namespace zelor::base {

/// Replaces a byte that begins no well-formed character.
constexpr char32_t kInvalidCharacter = 0xffffffff;

struct Character {
    char32_t code = kInvalidCharacter;
    std::size_t bytes = 1;
};

/// The character at `at`, which is inside `text`; a byte that begins no well-formed one is invalid by itself.
Character characterAt(const std::string& text, std::size_t at);

/// True for well-formed characters without controls but tabulator and carriage return.
bool isText(const std::string& text);

/// Marks that change the order in which the text around them is shown.
bool reordersText(char32_t code);

}  // namespace zelor::base
