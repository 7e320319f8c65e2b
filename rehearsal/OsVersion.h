#pragma once

#include <string>

namespace zelor::rehearsal {

struct OsVersion {
    int major = 0;
    int minor = 0;

    /// Whether this release is `otherMajor.otherMinor` or a later one.
    bool atLeast(int otherMajor, int otherMinor = 0) const {
        return major != otherMajor ? major > otherMajor : minor >= otherMinor;
    }
};

/// Reads "10.9.5" or "13.2.1". Throws std::invalid_argument for another shape, and for a release before 10.9.
OsVersion parseOsVersion(const std::string& text);

/// "10.9.0" is reported as "10.9".
std::string reportedVersion(const std::string& text);

/// "Mac OS X" to 10.15, "macOS" from 11 on.
std::string productNameOf(const OsVersion& version);

/// The build of a well-known release, else one that looks like a build of that system.
std::string buildOf(const std::string& version);

}  // namespace zelor::rehearsal
