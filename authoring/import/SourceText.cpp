#include "authoring/import/SourceText.h"

#include <algorithm>

#include "base/PrintableText.h"
#include "base/Strings.h"
#include "base/Utf8.h"

namespace zelor::authoring {

namespace {

std::string whyUnfit(char32_t code) {
    if (code == base::kInvalidCharacter) return "bytes that are not UTF-8";
    if (code == '\r') return "a carriage return";
    if ((code < 0x20 && code != '\t' && code != '\n') || (code >= 0x7f && code < 0xa0))
        return "a control character";
    return base::reordersText(code) ? "a mark that reorders the text around it" : "";
}

}  // namespace

std::string whyUnfitText(const std::string& text) {
    std::size_t line = 1;
    for (std::size_t at = 0; at < text.size();) {
        const base::Character character = base::characterAt(text, at);
        const std::string why = whyUnfit(character.code);
        if (!why.empty()) return why + " in line " + std::to_string(line);
        if (character.code == '\n') ++line;
        at += character.bytes;
    }
    return "";
}

std::string oneLine(const std::string& text, std::size_t limit) {
    std::string line;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\t' || c == '\n' || c == '\r';
        if (!blank) line += c;
        if (blank && !line.empty() && line.back() != ' ') line += ' ';
    }
    if (line.size() > limit) {
        while (limit > 0 && (static_cast<unsigned char>(line[limit]) & 0xc0U) == 0x80)
            --limit;
        line.replace(limit, std::string::npos, "...");
    }
    return base::trimmed(base::printable(line));
}

void addIdentifier(std::vector<std::string>& identifiers, const std::string& text) {
    if (identifiers.size() > kIdentifiersLimit || !isCceIdentifier(text)) return;
    if (std::find(identifiers.begin(), identifiers.end(), text) == identifiers.end())
        identifiers.push_back(text);
}

std::size_t bytesOfScripts(const ImportedRule& rule) {
    return (rule.script.size() + rule.check.size()) * std::max<std::size_t>(rule.identifiers.size(), 1);
}

}  // namespace zelor::authoring
