#include "controller/verify/Proof.h"

#include <sys/wait.h>

#include <algorithm>
#include <optional>
#include <pugixml.hpp>
#include <sstream>

#include "base/Files.h"
#include "base/PrintableText.h"
#include "base/Strings.h"
#include "controller/Text.h"
#include "platform/macos/UpdateSelection.h"

namespace zelor::controller {

namespace {

constexpr std::size_t kSaidColumns = 200;

std::string shortened(const std::string& text) {
    return cutToColumns(base::printable(text), kSaidColumns, "...");
}

/// ": the last line of the output", "" without one.
std::string said(const base::CommandResult& result) {
    const std::string line = base::lastLine(result.output);
    return line.empty() ? "" : ": " + shortened(line);
}

/// Why the command did not end by itself; "" when it did.
std::string whyNotEnded(const base::CommandResult& result) {
    if (!result.started) return "it could not be started: " + base::errorText(result.startError);
    if (result.timedOut) return "it was stopped at its time limit";
    if (!result.waited) return "its exit status is not known";
    if (WIFSIGNALED(result.status))
        return "it was ended by signal " + std::to_string(WTERMSIG(result.status));
    return "";
}

/// The value of a line "NAME: value" of a tool's output.
std::optional<std::string> valueOf(const std::string& name, const std::string& output) {
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (base::hasBeginning(line, name + ": ")) return base::trimmed(line.substr(name.size() + 2));
    }
    return std::nullopt;
}

/// The numbers between the dots; nothing when something else is there.
std::optional<std::vector<unsigned long>> numbersOf(const std::string& version) {
    constexpr std::size_t kMostDigits = 18;
    std::vector<unsigned long> numbers;
    std::istringstream pieces(version + '.');
    for (std::string piece; std::getline(pieces, piece, '.');) {
        if (piece.empty() || piece.size() > kMostDigits ||
            piece.find_first_not_of("0123456789") != std::string::npos)
            return std::nullopt;
        numbers.push_back(std::stoul(piece));
    }
    while (!numbers.empty() && numbers.back() == 0)
        numbers.pop_back();
    return numbers;
}

}  // namespace

Compliance complianceOf(Truth truth, bool recorded) {
    if (truth == Truth::unknown) return Compliance::unknown;
    if (truth == Truth::holds) return recorded ? Compliance::compliant : Compliance::notRecorded;
    return recorded ? Compliance::drifted : Compliance::notCompliant;
}

std::string complianceName(Compliance compliance) {
    switch (compliance) {
        case Compliance::compliant:
            return "compliant";
        case Compliance::drifted:
            return "drifted";
        case Compliance::notRecorded:
            return "not-recorded";
        case Compliance::notCompliant:
            return "not-compliant";
        case Compliance::unknown:
            break;
    }
    return "unknown";
}

Proof proofOfScript(const std::string& script, const base::CommandResult& result) {
    const std::string name = "the check " + base::printable(script);
    if (const std::string why = whyNotEnded(result); !why.empty())
        return {Truth::unknown, name + " proves nothing: " + why};
    const int status = WEXITSTATUS(result.status);
    if (status == 0) return {Truth::holds, name + " holds" + said(result)};
    if (status == 1) return {Truth::fails, name + " does not hold" + said(result)};
    return {Truth::unknown,
            name + " proves nothing: it failed with exit status " + std::to_string(status) + said(result)};
}

Proof proofOfVersion(const std::string& what, const std::string& found, const std::string& least) {
    const std::string has = what + " has version " + shortened(found);
    if (least.empty() || found == least) return {Truth::holds, found.empty() ? what + " is there" : has};
    if (found.empty()) return {Truth::unknown, what + " does not say its version"};
    const auto numbers = numbersOf(found), wanted = numbersOf(least);
    if (!numbers || !wanted)
        return {Truth::unknown, has + ", which cannot be compared with " + base::printable(least)};
    if (*numbers >= *wanted) return {Truth::holds, has};
    return {Truth::fails, has + ", not " + base::printable(least) + " or later"};
}

Proof proofOfReceipt(const agent::ContentCheck& check, const base::CommandResult& result) {
    if (const std::string why = whyNotEnded(result); !why.empty())
        return {Truth::unknown, "pkgutil proves nothing: " + why};
    const std::string package = "the package " + base::printable(check.name);
    const int status = WEXITSTATUS(result.status);
    if (status != 0 && base::contains(result.output, "No receipt for '" + check.name + "' found"))
        return {Truth::fails, package + " has no receipt"};
    if (status != 0) {
        return {Truth::unknown, "pkgutil proves nothing: it failed with exit status " +
                                    std::to_string(status) + said(result)};
    }
    if (valueOf("package-id", result.output) != check.name)
        return {Truth::unknown,
                "pkgutil proves nothing: it does not speak of " + base::printable(check.name)};
    return proofOfVersion(package, valueOf("version", result.output).value_or(""), check.version);
}

Proof proofOfBundle(const agent::ContentCheck& check, const std::string& propertyList) {
    const std::string bundle = "the bundle " + base::printable(check.name);
    pugi::xml_document document;
    const bool read = static_cast<bool>(
        document.load_buffer(propertyList.data(), propertyList.size(), pugi::parse_default));
    const pugi::xml_node root = document.child("plist").child("dict");
    if (!read || !root) return {Truth::unknown, bundle + " has an Info.plist that cannot be read"};
    for (const pugi::xml_node key : root.children("key")) {
        if (std::string(key.text().get()) != "CFBundleShortVersionString") continue;
        const pugi::xml_node value = key.next_sibling();
        const bool text = std::string(value.name()) == "string";
        return proofOfVersion(bundle, text ? base::trimmed(value.text().get()) : "", check.version);
    }
    return proofOfVersion(bundle, "", check.version);
}

Proof proofOfListing(const std::string& packageName, const std::string& productVersion,
                     const base::CommandResult& result) {
    if (const std::string why = whyNotEnded(result); !why.empty())
        return {Truth::unknown, "softwareupdate proves nothing: " + why};
    const std::vector<std::string> listing = platform::starredLines(result.output, platform::kListingPiece);
    const bool answered = !listing.empty() || base::contains(result.output, "No new software available");
    if (WEXITSTATUS(result.status) != 0 || !answered)
        return {Truth::unknown, "softwareupdate proves nothing: it listed nothing" + said(result)};
    const auto steps =
        platform::updateSteps(platform::selectUpdates(listing, packageName, [&] { return productVersion; }));
    if (steps.empty()) return {Truth::holds, "softwareupdate offers no update that belongs to it"};
    return {Truth::fails, "softwareupdate still offers " + shortened(steps.front().label)};
}

Proof proofOfAll(const std::vector<BlockProof>& blocks) {
    if (blocks.empty()) return {Truth::unknown, "the content has nothing for this platform"};
    const auto first = [&](Truth truth) {
        return std::find_if(blocks.begin(), blocks.end(),
                            [&](const BlockProof& block) { return block.proof.truth == truth; });
    };
    for (const Truth truth : {Truth::fails, Truth::unknown}) {
        const auto found = first(truth);
        if (found == blocks.end()) continue;
        if (blocks.size() == 1) return found->proof;
        return {truth, base::printable(found->eriId) + ": " + found->proof.reason};
    }
    return blocks.size() == 1 ? blocks.front().proof
                              : Proof{Truth::holds, "all " + std::to_string(blocks.size()) + " ERIs hold"};
}

}  // namespace zelor::controller
