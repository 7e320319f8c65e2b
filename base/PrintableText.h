#pragma once

#include <string>

#include "base/SystemCalls.h"  // for locale_t

/// Text that may go to a terminal.
namespace zelor::base {

/// `text` safe to print: control characters, escape sequences, marks that reorder text, and bytes that are
/// not UTF-8 become "?".
std::string printable(const std::string& text);

/// The thread's character type is UTF-8 for the object's life, whatever the user's locale says.
class Utf8Locale {
  public:
    Utf8Locale();
    ~Utf8Locale();
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

  private:
    locale_t old_ = nullptr;
};

/// Columns of a character on a terminal; below zero for one that must not be printed. Needs a Utf8Locale.
int columnsOfCharacter(char32_t code);

}  // namespace zelor::base
