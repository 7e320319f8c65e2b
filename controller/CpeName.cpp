#include "controller/CpeName.h"

#include <cctype>
#include <vector>

#include "base/Hex.h"
#include "base/Strings.h"

namespace zelor::controller {

namespace {

constexpr char kBeginning[] = "cpe:2.3:";

/// The fields of a name as they are written; a quoted colon separates nothing.
std::vector<std::string> fieldsOf(const std::string& text) {
    std::vector<std::string> fields(1);
    bool quoted = false;
    for (const char letter : text) {
        if (letter == ':' && !quoted) {
            fields.emplace_back();
        } else {
            fields.back() += letter;
        }
        quoted = letter == '\\' && !quoted;
    }
    return fields;
}

std::string percentEncoded(char letter) {
    std::string code = "%";
    base::appendHex(code, static_cast<unsigned char>(letter));
    return code;
}

/// A field as CPE 2.2 writes it; none for a letter that should be quoted, and for a quote without a letter.
std::optional<std::string> field22(const std::string& field) {
    if (field == "*") return "";
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        const char letter = field[i];
        const bool plain = std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_' ||
                           letter == '-' || letter == '.';
        if (letter == '\\') {
            if (++i == field.size()) return std::nullopt;
            const char quoted = field[i];
            const bool readable = quoted == '.' || quoted == '-' || quoted == '_';
            text += readable ? std::string(1, quoted) : percentEncoded(quoted);
        } else if (letter == '?' || letter == '*') {
            text += letter == '?' ? "%01" : "%02";
        } else if (plain) {
            text += letter;
        } else {
            return std::nullopt;
        }
    }
    return text;
}

}  // namespace

bool isCpe23(const std::string& name) {
    return base::hasBeginningInAnyCase(name, kBeginning);
}

std::optional<std::string> cpe22Name(const std::string& name23) {
    constexpr std::size_t kEdition = 5;
    constexpr std::size_t kFieldCount = 11;
    if (!isCpe23(name23)) return std::nullopt;
    std::vector<std::string> fields = fieldsOf(base::lowerCased(name23.substr(sizeof kBeginning - 1)));
    if (fields.size() > kFieldCount || (fields[0] != "o" && fields[0] != "a")) return std::nullopt;
    fields.resize(kFieldCount, "*");
    bool extended = false;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        const auto bound = field22(fields[i]);
        if (!bound) return std::nullopt;
        fields[i] = *bound;
        if (i > kEdition + 1 && !fields[i].empty()) extended = true;
    }
    // The fields that 2.2 does not have are packed into the edition.
    if (extended) {
        fields[kEdition].insert(0, 1, '~');
        for (std::size_t i = kEdition + 2; i < kFieldCount; ++i)
            fields[kEdition] += '~' + fields[i];
    }
    std::string name = "cpe:/" + fields[0];
    for (std::size_t i = 1; i < kEdition + 2; ++i)
        name += ':' + fields[i];
    name.erase(name.find_last_not_of(':') + 1);
    return name;
}

}  // namespace zelor::controller
