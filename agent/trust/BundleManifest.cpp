#include "agent/trust/BundleManifest.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "agent/trust/Sha256.h"
#include "base/Files.h"
#include "base/Strings.h"

namespace zelor::agent {

namespace {

/// Everything but printable ASCII without blank and backslash becomes \xHH.
std::string escapedName(const std::string& name) {
    std::string out;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte > 0x20 && byte < 0x7f && byte != '\\') {
            out += c;
        } else {
            out += "\\x";
            base::appendHex(out, byte);
        }
    }
    return out;
}

std::string octalMode(mode_t mode) {
    std::string digits = "0000";
    digits[1] = static_cast<char>('0' + ((mode >> 6U) & 7U));
    digits[2] = static_cast<char>('0' + ((mode >> 3U) & 7U));
    digits[3] = static_cast<char>('0' + (mode & 7U));
    return digits;
}

/// "SIZE SHA256" of a file.
std::string sizeAndDigest(const std::string& path) {
    Sha256 sha256;
    base::readInPieces(base::openRegularFile(path), path, [&](std::string_view piece) { sha256.add(piece); });
    const FileDigest digest = sha256.finish();
    return std::to_string(digest.length) + ' ' + digest.sha256;
}

std::string manifestLine(const std::string& path, const std::string& name) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        throw std::runtime_error("cannot examine " + path + ": " + base::errorText(errno));
    }
    std::string line;
    if (S_ISDIR(status.st_mode)) {
        line = "folder " + octalMode(status.st_mode);
    } else if (S_ISLNK(status.st_mode)) {
        line = "link " + escapedName(boost::filesystem::read_symlink(path).string());
    } else if (!S_ISREG(status.st_mode)) {
        throw std::runtime_error(path +
                                 " is neither file, directory nor symbolic link; remove it from the bundle");
    } else if ((status.st_mode & (S_ISUID | S_ISGID)) != 0) {
        throw std::runtime_error(path + " has its set-user-id or set-group-id bit; clear it (chmod ug-s)");
    } else {
        line = "file " + octalMode(status.st_mode) + ' ' + sizeAndDigest(path);
    }
    return line + ' ' + escapedName(name) + '\n';
}

/// The lines of what is below one directory. The path of a directory sorts before what is in it, but other
/// names may come in between ("a", "a-b", "a/c"): each directory takes part in the order twice.
void walk(const std::string& prefix, const std::string& inner,
          const std::function<void(const std::string&)>& take) {
    std::vector<std::string> steps;
    for (boost::filesystem::directory_iterator it(prefix + inner), end; it != end; ++it) {
        steps.push_back(it->path().filename().string());
        if (it->symlink_status().type() == boost::filesystem::directory_file)
            steps.push_back(steps.back() + '/');
    }
    std::sort(steps.begin(), steps.end());
    for (const std::string& step : steps) {
        const std::string name = inner + step;
        if (step.back() == '/') {
            walk(prefix, name, take);
        } else {
            take(manifestLine(prefix + name, name));
        }
    }
}

}  // namespace

void forEachManifestLine(const std::string& bundle, const std::function<void(const std::string&)>& take) {
    const auto last = bundle.find_last_not_of('/');
    if (last == std::string::npos) throw std::runtime_error("a bundle needs a directory of its own");
    const std::string base = bundle.substr(0, last + 1);
    take(manifestLine(base, "."));
    walk(base + '/', "", take);
}

std::string bundleManifest(const std::string& bundle) {
    std::string manifest(kManifestFirstLine);
    forEachManifestLine(bundle, [&](const std::string& line) { manifest += line; });
    return manifest;
}

bool beginsAsManifest(std::string_view bytes) {
    const auto begins = [&](std::string_view line) { return bytes.substr(0, line.size()) == line; };
    return begins(kManifestFirstLine) || begins(kEarlierManifestFirstLine);
}

}  // namespace zelor::agent
