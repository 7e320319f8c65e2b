#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace zelor::agent {

/// The first line of a bundle's manifest. The earlier one is accepted until version 2.0 of the agent; it is a
/// text that a shell runs, so a manifest signed with it could be passed off as a script. The current one is a
/// syntax error to every shell, which ends before it runs anything.
inline constexpr std::string_view kManifestFirstLine = ") zelor-bundle-manifest 2\n";
inline constexpr std::string_view kEarlierManifestFirstLine = "zelor-bundle-manifest 1\n";

/// Hands the lines of a bundle directory's manifest to `take`, without the first line, each with its line
/// end: the directory itself as ".", then one line for each entry below it in byte order of their relative
/// paths: kind, permission bits, size and SHA-256 (files) or target (symbolic links), path. Names are
/// escaped, so none can forge a line. Memory is taken for the names of one directory and of those that lead
/// to it. Throws std::runtime_error when an entry cannot be read, is neither file, directory nor symbolic
/// link, or is a file that would run as another user.
void forEachManifestLine(const std::string& bundle, const std::function<void(const std::string&)>& take);

/// The text over which a bundle directory is signed, of the current version. Throws as
/// `forEachManifestLine`.
std::string bundleManifest(const std::string& bundle);

/// True for bytes that begin as a manifest of either version does.
bool beginsAsManifest(std::string_view bytes);

}  // namespace zelor::agent
