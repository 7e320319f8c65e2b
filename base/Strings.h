#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Small operations on narrow byte strings; all are pure and case-sensitive unless they say otherwise.
namespace zelor::base {

/// Whether `text` ends, or begins, with the other text; an empty one always matches.
inline bool hasEnding(std::string_view text, std::string_view ending) {
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}
inline bool hasBeginning(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}
/// Whether `text` begins with `beginning`, which is in lower case; the case of ASCII letters is ignored.
bool hasBeginningInAnyCase(const std::string& text, std::string_view beginning);
/// Whether `part` occurs anywhere in `text`; an empty one always does.
inline bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}
/// `text` without white space at both ends.
std::string trimmed(std::string text);
/// `text` without the bytes of `blanks` at both ends, in any locale: for text from a network or a file.
/// Refers to the memory of `text`.
std::string_view trimmedView(std::string_view text, std::string_view blanks = " \t\r\n");
/// The last line of `text` that is not blank, trimmed; "" for none.
std::string lastLine(const std::string& text);
/// `text` with its ASCII letters in lower case.
std::string lowerCased(std::string text);
/// `text` in two at the first `delimiter`, or whole when there is none.
std::vector<std::string> splitInTwo(const std::string& text, const std::string& delimiter);
/// `text` cut at every run of `separator`; an empty text gives one empty piece.
std::vector<std::string> splitCompressed(std::string_view text, char separator);
/// The number at the start of `text` as atoi(3) reads it, but defined for every text; 0 without a number.
int leadingInt(const std::string& text);
/// How many bytes must be inserted, removed, replaced or swapped with their neighbour to turn one text into
/// the other; the case of ASCII letters does not count.
std::size_t editDistance(const std::string& one, const std::string& other);
/// The known word that `word` was probably meant to be: one that begins with it, else the one with the
/// smallest edit distance. "" when none is near, and for words of more than 40 bytes.
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);
/// True when there is a byte below 0x20, or 0x7f.
bool hasControlCharacter(const std::string& text);
/// True when a line of one of our files has a control character other than tab and carriage return, which a
/// power loss can leave.
bool isDamagedLine(std::string_view line);

/// `text` for use inside single quotes of a shell command: its single quotes are escaped.
std::string insideSingleQuotes(const std::string& text);
/// `word` for use as one word of a shell command: unchanged when it holds only letters, digits and
/// _@%+=:,./-, in single quotes otherwise.
std::string shellWord(const std::string& word);

/// The case of hexadecimal letters.
enum class HexCase { lower, upper };

/// Appends the two hexadecimal digits of `byte`.
void appendHex(std::string& out, unsigned char byte, HexCase digits = HexCase::lower);
/// The lower-case hexadecimal digits of `bytes`, two for each.
std::string hexadecimal(std::string_view bytes);
/// The value of a hexadecimal digit of either case; -1 for any other character.
int hexValue(char digit);

}  // namespace zelor::base
