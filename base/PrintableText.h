#pragma once

#include <string>

#include "base/SystemCalls.h"  // for locale_t

/// Text that may go to a terminal.
namespace zelor::base {

/// `text` made safe to print: control characters, escape sequences, marks that reorder text, and bytes that
/// are not UTF-8 become "?".
std::string printable(const std::string& text);

/// Makes UTF-8 the character type of the thread's locale for the object's life. Create and destroy it on the
/// same thread.
class Utf8Locale {
  public:
    Utf8Locale();
    ~Utf8Locale();
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

  private:
    locale_t old_ = nullptr;
};

/// The columns that a character takes on a terminal; negative for one that must not be printed. Needs a
/// Utf8Locale.
int columnsOfCharacter(char32_t code);

}  // namespace zelor::base
