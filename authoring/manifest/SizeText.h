#pragma once

#include <cstdint>
#include <string>

namespace zelor::authoring {

/// A size for content, rounded up: "1 KB", "900 KB", "1.5 MB", "2100 MB". Agents read it as at least `bytes`,
/// and never as more than a tenth of a megabyte (below 1 MB: a kilobyte) above.
std::string sizeText(std::uint64_t bytes);

/// Why agents would misread a size text; "" when they read it as people do: "2 GB" counts as two bytes, "2.05
/// MB" as 2.5.
std::string whySizeMisleads(const std::string& size);

}  // namespace zelor::authoring
