#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/content/ContentCheck.h"
#include "agent/content/PatchDigests.h"
#include "remediation/creEriParsedData.h"

namespace zelor::agent {

/// The largest size of a content file, in bytes.
inline constexpr std::size_t kContentBytesLimit = 4U << 20U;
/// The same of its detached signature.
inline constexpr std::size_t kSignatureBytesLimit = 16U << 10U;

/// Whether the text is a valid content identifier, which becomes part of a file name and of a URL.
bool isContentIdentifier(const std::string& text);

/// The remediation entries for one identifier, as a content file holds them.
class ContentDocument {
  public:
    /// Reads the bytes of a content file. Throws std::runtime_error that says what is wrong and in which
    /// line: malformed or oversized XML, a document type, too many or too deep elements, another identifier
    /// than `identifier`, control characters in names. Ignores unknown elements and attributes.
    static ContentDocument parse(std::string_view xml, const std::string& identifier);

    /// The first entry for that platform and product; null when there is none. An entry that leaves one of
    /// the two out matches any.
    const creEriParsedData* find(const std::string& platformCpe, const std::string& productCpe) const;

    /// What that entry says of its patches and check scripts; empty when there is no entry.
    std::vector<PatchDigests> patches(const std::string& platformCpe, const std::string& productCpe) const;

    /// The checks of that entry, of each block at most one, in its order; empty when there is no entry.
    std::vector<ContentCheck> checks(const std::string& platformCpe, const std::string& productCpe) const;

    /// Roughly the memory it takes.
    std::size_t bytes() const { return bytes_; }

  private:
    friend class ContentReader;
    struct Entry {
        std::optional<std::string> platform;
        std::optional<std::string> product;
        creEriParsedData data;
        std::vector<PatchDigests> patches;  ///< of the blocks that name one, and of check scripts
        std::vector<ContentCheck> checks;   ///< of the blocks that have one
    };
    const Entry* entry(const std::string& platformCpe, const std::string& productCpe) const;

    std::vector<Entry> entries_;
    std::size_t bytes_ = 0;
};

}  // namespace zelor::agent
