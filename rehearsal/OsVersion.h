#pragma once

#include <string>

namespace zelor::rehearsal {

/// The first two numbers of a release of macOS.
struct OsVersion {
    int major = 0;
    int minor = 0;

    /// Whether this release is `otherMajor.otherMinor` or a later one.
    bool atLeast(int otherMajor, int otherMinor = 0) const {
        return major != otherMajor ? major > otherMajor : minor >= otherMinor;
    }
};

/// Parses a version such as "10.9.5" or "13.2.1". Throws std::invalid_argument for another form, and for a
/// release before 10.9.
OsVersion parseOsVersion(const std::string& text);

/// A version as the system reports it: "10.9" for "10.9.0".
std::string reportedVersion(const std::string& text);

/// "Mac OS X" to 10.15, "macOS" from 11 on.
std::string productNameOf(const OsVersion& version);

/// The build number of a well-known release, else a plausible one for that system.
std::string buildOf(const std::string& version);

}  // namespace zelor::rehearsal
