#include "base/PrintableText.h"

#include <wchar.h>

#include "base/Utf8.h"

namespace zelor::base {

Utf8Locale::Utf8Locale() {
    static const locale_t kUtf8 = [] {
        for (const char* name : {"C.UTF-8", "UTF-8", "en_US.UTF-8"}) {
            if (const locale_t found = ::newlocale(LC_CTYPE_MASK, name, nullptr)) return found;
        }
        return static_cast<locale_t>(nullptr);
    }();
    if (kUtf8 != nullptr) old_ = ::uselocale(kUtf8);
}

Utf8Locale::~Utf8Locale() {
    if (old_ != nullptr) ::uselocale(old_);
}

int columnsOfCharacter(char32_t code) {
    const bool noCharacter = (code & 0xfffeU) == 0xfffe;  // XML excludes two of them
    if (code == base::kInvalidCharacter || code < 0x20 || (code >= 0x7f && code < 0xa0) || noCharacter ||
        base::reordersText(code))
        return -1;
    if (code < 0x7f) return 1;
    return ::wcwidth(static_cast<wchar_t>(code));
}

std::string printable(const std::string& text) {
    const Utf8Locale utf8;
    std::string out;
    out.reserve(text.size());
    for (std::size_t at = 0; at < text.size();) {
        const base::Character character = base::characterAt(text, at);
        if (columnsOfCharacter(character.code) < 0) {
            out += '?';
        } else {
            out.append(text, at, character.bytes);
        }
        at += character.bytes;
    }
    return out;
}

}  // namespace zelor::base
