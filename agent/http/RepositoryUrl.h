#pragma once

#include <string>
#include <vector>

namespace zelor::agent {

class AgentSettings;

/// The most addresses that a repository may have.
inline constexpr std::size_t kMostAddresses = 8;

/// The configured repository's addresses in their order, each a URL without trailing slashes; in the setting,
/// blanks or commas separate them. Throws std::runtime_error, with the remedy, when there is none, there are
/// more than `kMostAddresses`, or one is neither http nor https.
std::vector<std::string> repositoryUrls(const AgentSettings& settings);

/// The addresses of such a setting, whatever they are, for people: without user names and passwords.
std::string shownAddresses(const std::string& setting);

/// `text` as one path segment of a URL: everything but unreserved characters percent-encoded.
std::string urlSegment(const std::string& text);

}  // namespace zelor::agent
