#pragma once

namespace zelor::remediation {

/// Results of one installation or configuration step; any other value is an installer's own failure code.
constexpr int kInstalled = 0;
constexpr int kInstallFailed = -1;
constexpr int kFileUnavailable = -3;

}  // namespace zelor::remediation
