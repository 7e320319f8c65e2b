#include <fcntl.h>

#include <set>
#include <sstream>

#include "Support.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "remediation/apply/InstalledRecord.h"

namespace {

using zelor::fuzz::require;

std::set<std::string> linesOf(const std::string& text) {
    std::set<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);)
        lines.insert(line);
    return lines;
}

void compare(const zelor::remediation::InstalledRecord& record, const std::string& whole) {
    const std::set<std::string> lines = linesOf(whole);
    require(record.empty() == lines.empty(), "a record is empty when its file is");
    for (const std::string& line : lines) {
        require(record.hasLine(line), "a record has every line");
        require(record.hasLine(line + 'x') == (lines.count(line + 'x') != 0), "and no other");
        if (!line.empty()) {
            const std::string shorter = line.substr(1);
            require(record.hasLine(shorter) == (lines.count(shorter) != 0), "nor a part of one");
        }
    }
}

}  // namespace

// Pieces between zero bytes are written one after the other: appended, or by their first byte as a new file
// ('!'), at the beginning of the same file ('='), or through the record ('+'). A record that is read at each
// step gives the same as one that is read at the end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::fuzz::QuietRoot kPlace;
    const std::string file = kPlace / "record";
    std::string text = zelor::fuzz::textOf(data, size);
    std::string whole;
    zelor::remediation::InstalledRecord record;
    boost::filesystem::remove(file);
    while (!text.empty()) {
        const std::string piece = zelor::fuzz::takeUntil(text, std::string(1, '\0'));
        if (!piece.empty() && piece.front() == '!') {
            whole = piece;
            zelor::test::writeFile(kPlace / "new", whole);
            boost::filesystem::rename(kPlace / "new", file);
        } else if (!piece.empty() && piece.front() == '=') {
            whole = piece + whole;
            zelor::test::writeFile(file, whole);
        } else if (!piece.empty() && piece.front() == '+' && !zelor::base::contains(piece, "\n")) {
            require(record.append(file, piece).has_value(), "a line can be appended");
            whole += (whole.empty() || whole.back() == '\n' ? "" : "\n") + piece + "\n";
        } else {
            whole += piece;
            std::ofstream(file, std::ios::binary | std::ios::app) << piece;
        }
        record.refresh(file);
        compare(record, whole);
    }
    require(zelor::base::appendLine(file, "ERI-1"), "a line can be appended");
    record.refresh(file);
    compare(record, whole + (whole.empty() || whole.back() == '\n' ? "" : "\n") + "ERI-1\n");
    return 0;
}
