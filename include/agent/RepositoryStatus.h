#pragma once

namespace zelor::agent {

/// What the reason of a request begins with when its content or archive is missing because the repository
/// does not answer; the time since when follows. A display may say it once for all such requests.
inline constexpr char kRepositoryDown[] = "the repository does not answer";

}  // namespace zelor::agent
