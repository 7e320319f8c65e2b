#pragma once

#include <string>
#include <utility>
#include <vector>

#include "base/Result.h"

namespace zelor::authoring {

/// One node of a YAML file, with every scalar as its text.
struct YamlNode {
    /// `null` is also an empty document.
    enum class Kind { null, scalar, list, map };
    Kind kind = Kind::null;
    std::string text;                                       ///< of a scalar
    std::vector<YamlNode> items;                            ///< of a list
    std::vector<std::pair<std::string, YamlNode>> members;  ///< of a map, in the file's order

    /// The member of that name; a null node when there is none, or when this is no map.
    const YamlNode& operator[](const std::string& name) const;
    /// False for null, "" and empty lists and maps.
    bool hasContent() const { return !text.empty() || !items.empty() || !members.empty(); }
};

/// The most bytes of a YAML file.
constexpr std::size_t kYamlBytesLimit = 1U << 20U;

/// Reads a file of one YAML document. Refused: more than `kYamlBytesLimit` bytes, what is not UTF-8, control
/// characters, anchors and aliases (a few lines of them can expand to gigabytes), custom tags, more
/// than 32 levels or 1,000 names in one map, a name given twice, a second document.
base::Result<YamlNode> parseYaml(const std::string& text);

}  // namespace zelor::authoring
