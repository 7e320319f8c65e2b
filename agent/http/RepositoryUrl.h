#pragma once

#include <string>

namespace zelor::agent {

class AgentSettings;

/// The configured repository's URL without trailing slashes. Throws std::runtime_error, with the remedy, when
/// there is none or it is neither http nor https.
std::string repositoryUrl(const AgentSettings& settings);

/// `text` as one path segment of a URL: everything but unreserved characters percent-encoded.
std::string urlSegment(const std::string& text);

}  // namespace zelor::agent
