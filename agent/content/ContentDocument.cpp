#include "agent/content/ContentDocument.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <charconv>
#include <pugixml.hpp>
#include <stdexcept>
#include <utility>

#include "base/Strings.h"
#include "remediation/RecordAccess.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kEntriesLimit = 1000;
constexpr std::size_t kBlocksLimit = 1000;  // of one entry
constexpr std::size_t kAllBlocksLimit =
    10'000;  // in memory, a block is up to sixty times as large as in the file
constexpr int kDepthLimit = 32;
constexpr std::size_t kIdentifierLimit = 128;
constexpr std::size_t kSha256Digits = 64;

bool isControl(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}

/// Finds what a content file must not have anywhere.
class Survey : public pugi::xml_tree_walker {
  public:
    bool for_each(pugi::xml_node& node) override {
        if (depth() >= kDepthLimit) problem = "elements more than " + std::to_string(kDepthLimit) + " deep";
        if (node.type() == pugi::node_doctype) problem = "a document type; leave it out";
        if (!problem.empty()) offset = node.offset_debug();
        return problem.empty();
    }
    std::string problem;
    std::ptrdiff_t offset = 0;
};

}  // namespace

bool isContentIdentifier(const std::string& text) {
    const auto alphanumeric = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    };
    return !text.empty() && text.size() <= kIdentifierLimit && alphanumeric(text.front()) &&
           std::all_of(text.begin(), text.end(),
                       [&](char c) { return alphanumeric(c) || c == '.' || c == '_' || c == '-'; });
}

/// Turns the tree of one file into records.
class ContentReader {
  public:
    ContentReader(std::string_view xml, const std::string& identifier) : xml_(xml), identifier_(identifier) {}

    ContentDocument read() {
        load();
        const pugi::xml_node root = rootElement();
        if (attribute(root, "identifier") != identifier_) {
            fail(root, "the file is for \"" + attribute(root, "identifier") + "\", not for " + identifier_);
        }
        ContentDocument document;
        std::size_t blocks = 0;
        for (const pugi::xml_node cre : root.children("cre")) {
            if (document.entries_.size() == kEntriesLimit) fail(cre, "more than 1000 cre elements");
            document.entries_.push_back(entry(cre));
            blocks += RecordAccess::blocks(document.entries_.back().data).size();
            if (blocks > kAllBlocksLimit) fail(cre, "more than 10000 eri elements in all");
        }
        document.bytes_ = xml_.size() + sizeof document +
                          document.entries_.size() * sizeof(ContentDocument::Entry) +
                          blocks * (sizeof(parsedEriData) + 2 * sizeof(PatchDigests) + sizeof(ContentCheck));
        return document;
    }

  private:
    [[noreturn]] void failAt(std::ptrdiff_t offset, const std::string& what) const {
        const auto at = std::clamp<std::ptrdiff_t>(offset, 0, static_cast<std::ptrdiff_t>(xml_.size()));
        const auto line = 1 + std::count(xml_.begin(), xml_.begin() + at, '\n');
        throw std::runtime_error("line " + std::to_string(line) + " (byte " + std::to_string(at) +
                                 "): " + what);
    }
    [[noreturn]] void fail(const pugi::xml_node& node, const std::string& what) const {
        failAt(node.offset_debug(), what);
    }

    void load() {
        if (xml_.size() > kContentBytesLimit) throw std::runtime_error("the file is larger than 4 MiB");
        const auto zero = xml_.find('\0');
        if (zero != std::string_view::npos) failAt(static_cast<std::ptrdiff_t>(zero), "a zero byte");
        const pugi::xml_parse_result result = document_.load_buffer(
            xml_.data(), xml_.size(), pugi::parse_default | pugi::parse_doctype, pugi::encoding_utf8);
        if (!result) failAt(result.offset, std::string("malformed XML: ") + result.description());
        Survey survey;
        document_.traverse(survey);
        if (!survey.problem.empty()) failAt(survey.offset, survey.problem);
    }

    pugi::xml_node rootElement() const {
        const pugi::xml_node root = document_.document_element();
        const std::string name = root.name();
        if (name != "remediation") fail(root, "the root element is \"" + name + "\", not \"remediation\"");
        for (pugi::xml_node next = root.next_sibling(); next; next = next.next_sibling()) {
            if (next.type() == pugi::node_element) fail(next, "a second root element");
        }
        return root;
    }

    /// Names go into file names, logs and one-line records.
    std::string name(const pugi::xml_node& node, const std::string& what, const std::string& text) const {
        if (std::any_of(text.begin(), text.end(), isControl)) fail(node, "a control character in " + what);
        return text;
    }

    std::string attribute(const pugi::xml_node& node, const char* key) const {
        return name(node, key, std::string(base::trimmedView(node.attribute(key).value())));
    }

    std::optional<std::string> optionalAttribute(const pugi::xml_node& node, const char* key) const {
        if (!node.attribute(key)) return std::nullopt;
        return attribute(node, key);
    }

    std::string text(const pugi::xml_node& block, const char* key) const {
        const pugi::xml_node node = block.child(key);
        std::string joined;
        for (const pugi::xml_node piece : node.children()) {
            if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata)
                joined += piece.value();
        }
        const auto unwanted = [](unsigned char c) {
            return isControl(c) && c != '\t' && c != '\n' && c != '\r';
        };
        if (std::any_of(joined.begin(), joined.end(), unwanted)) {
            fail(node, std::string("a control character in ") + key);
        }
        return std::string(base::trimmedView(joined));
    }

    ContentDocument::Entry entry(const pugi::xml_node& cre) const {
        ContentDocument::Entry entry{
            optionalAttribute(cre, "platform"), optionalAttribute(cre, "product"), {}, {}, {}};
        if (boost::starts_with(identifier_, "CVE-")) RecordAccess::cve(entry.data) = identifier_;
        if (boost::starts_with(identifier_, "CCE-")) RecordAccess::cce(entry.data) = identifier_;
        RecordAccess::creId(entry.data) = attribute(cre, "id");
        auto& blocks = RecordAccess::blocks(entry.data);
        for (const pugi::xml_node eri : cre.children("eri")) {
            if (blocks.size() == kBlocksLimit) fail(eri, "more than 1000 eri elements in one cre");
            blocks.push_back(block(eri));
            RecordAccess::eriIds(entry.data).push_back(RecordAccess::eriId(blocks.back()));
            PatchDigests patch = digests(eri.child("patch"));
            if (!patch.patchId.empty()) entry.patches.push_back(std::move(patch));
            const pugi::xml_node check = eri.child("check");
            if (!check) continue;
            entry.checks.push_back(readCheck(check, RecordAccess::eriIds(entry.data).back()));
            if (entry.checks.back().kind == ContentCheck::Kind::script)
                entry.patches.push_back(digests(check));
        }
        return entry;
    }

    parsedEriData block(const pugi::xml_node& eri) const {
        parsedEriData data;
        RecordAccess::eriId(data) = attribute(eri, "id");
        // Installed patches are recorded by this id; an empty one would match every other empty one.
        if (RecordAccess::eriId(data).empty()) fail(eri, "an eri element without an id");
        const std::string reboot = attribute(eri, "reboot");
        RecordAccess::reboot(data) = reboot == "true" || reboot == "1";
        RecordAccess::productCpe(data) = name(eri, "product", text(eri, "product"));
        RecordAccess::operationImpact(data) = text(eri, "impact");
        RecordAccess::instructions(data) = text(eri, "instructions");
        RecordAccess::silentModeCmd(data) = text(eri, "silent");
        RecordAccess::mskbId(data) = name(eri, "mskb", text(eri, "mskb"));
        const pugi::xml_node patch = eri.child("patch");
        RecordAccess::patchId(data) = attribute(patch, "id");
        RecordAccess::patchSize(data) = attribute(patch, "size");
        RecordAccess::md5sum(data) = attribute(patch, "md5");
        return data;
    }

    /// A check of a kind that is not known here belongs to a later version, and does not spoil the content.
    ContentCheck readCheck(const pugi::xml_node& node, const std::string& eriId) const {
        if (node.next_sibling("check")) fail(node, "more than one check in one eri");
        ContentCheck check{eriId, ContentCheck::Kind::other, "", attribute(node, "version")};
        int kinds = 0;
        for (const auto& [key, kind] : {std::pair{"id", ContentCheck::Kind::script},
                                        {"receipt", ContentCheck::Kind::receipt},
                                        {"bundle", ContentCheck::Kind::bundle}}) {
            if (!node.attribute(key)) continue;
            check.kind = kind;
            check.name = attribute(node, key);
            ++kinds;
        }
        if (kinds > 1) fail(node, "a check has more than one of id, receipt and bundle");
        if (const std::string problem = problemOf(check); !problem.empty()) fail(node, problem);
        return check;
    }

    PatchDigests digests(const pugi::xml_node& patch) const {
        return {attribute(patch, "id"), digest(patch, "sha256", "length"),
                digest(patch, "archiveSha256", "archiveLength")};
    }

    /// Content that was published before digests has none; half a digest is nobody's.
    std::optional<FileDigest> digest(const pugi::xml_node& patch, const char* sha256Key,
                                     const char* lengthKey) const {
        FileDigest digest{attribute(patch, sha256Key), 0};
        const std::string length = attribute(patch, lengthKey);
        if (digest.sha256.empty() && length.empty()) return std::nullopt;
        const bool hexadecimal = digest.sha256.size() == kSha256Digits &&
                                 digest.sha256.find_first_not_of("0123456789abcdef") == std::string::npos;
        if (!hexadecimal) fail(patch, std::string(sha256Key) + " is not 64 lower-case hexadecimal digits");
        const auto [end, error] =
            std::from_chars(length.data(), length.data() + length.size(), digest.length);
        if (error != std::errc() || end != length.data() + length.size())
            fail(patch, std::string(lengthKey) + " is not a number of bytes");
        return digest;
    }

    std::string_view xml_;
    std::string identifier_;
    pugi::xml_document document_;
};

ContentDocument ContentDocument::parse(std::string_view xml, const std::string& identifier) {
    return ContentReader(xml, identifier).read();
}

const ContentDocument::Entry* ContentDocument::entry(const std::string& platformCpe,
                                                     const std::string& productCpe) const {
    const auto matches = [&](const Entry& entry) {
        return entry.platform.value_or(platformCpe) == platformCpe &&
               entry.product.value_or(productCpe) == productCpe;
    };
    const auto found = std::find_if(entries_.begin(), entries_.end(), matches);
    return found == entries_.end() ? nullptr : &*found;
}

const creEriParsedData* ContentDocument::find(const std::string& platformCpe,
                                              const std::string& productCpe) const {
    const Entry* found = entry(platformCpe, productCpe);
    return found == nullptr ? nullptr : &found->data;
}

std::vector<PatchDigests> ContentDocument::patches(const std::string& platformCpe,
                                                   const std::string& productCpe) const {
    const Entry* found = entry(platformCpe, productCpe);
    return found == nullptr ? std::vector<PatchDigests>() : found->patches;
}

std::vector<ContentCheck> ContentDocument::checks(const std::string& platformCpe,
                                                  const std::string& productCpe) const {
    const Entry* found = entry(platformCpe, productCpe);
    return found == nullptr ? std::vector<ContentCheck>() : found->checks;
}

}  // namespace zelor::agent
