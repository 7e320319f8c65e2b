#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "base/PrintableText.h"
#include "results/Text.h"

/// Text for people. A "printable" text is one that `base::printable` made: safe on a terminal.
namespace zelor::controller {

/// Text that pages about results share.
using results::columnsOf;
using results::countText;
using results::cutToColumns;
using results::escapedMarkup;
using results::markupText;
using results::packageNameOf;
using results::requestLabel;
using results::utcText;

/// What switches a terminal to a colour or weight, and back.
inline constexpr char kBold[] = "\x1b[1m";
inline constexpr char kDim[] = "\x1b[2m";
inline constexpr char kRed[] = "\x1b[31m";
inline constexpr char kGreen[] = "\x1b[32m";
inline constexpr char kYellow[] = "\x1b[33m";
inline constexpr char kCyan[] = "\x1b[36m";
inline constexpr char kUncoloured[] = "\x1b[0m";

/// As `cutToColumns`, then padded with blanks to exactly `columns`.
std::string fitToColumns(const std::string& printableText, std::size_t columns, const std::string& ellipsis);

/// A printable text in lines of at most `columns` columns, broken at blanks where there are any.
std::vector<std::string> wrapToColumns(const std::string& printableText, std::size_t columns);

/// A printable text in lines of at most `columns` columns, those after the first indented by `indent` blanks;
/// unchanged for 0 columns. Without a final line end.
std::string folded(const std::string& printableText, std::size_t columns, std::size_t indent);

/// "512 B", "4.2 MB" (powers of 1024).
std::string bytesText(std::uint64_t bytes);
/// "0:07", "12:34", "1:02:03"; below zero counts as zero.
std::string clockText(double seconds);
/// "0.4 s", "12 s", "3 min 4 s"
std::string durationText(double seconds);

}  // namespace zelor::controller
