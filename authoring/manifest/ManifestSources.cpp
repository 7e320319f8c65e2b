#include <boost/filesystem/operations.hpp>
#include <map>

#include "authoring/checks/ScriptChecks.h"
#include "authoring/manifest/Manifest.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

bool isRegularFile(const std::string& path) {
    boost::system::error_code ignored;
    return fs::is_regular_file(path, ignored);
}

bool canBeRead(const ManifestPatch& patch) {
    boost::system::error_code ignored;
    return isRegularFile(patch.file) || (!patch.file.empty() && fs::is_directory(patch.file, ignored));
}

Findings md5Findings(const ManifestPatch& patch) {
    if (patch.md5.empty() || patch.md5 == patch.digests.md5) return {};
    return {{Severity::error, patch.place,
             "field \"md5\" is " + patch.md5 + ", but the file has " + patch.digests.md5,
             "leave the field out, or check the file"}};
}

}  // namespace

Findings sourceFindings(Manifest& manifest, const std::set<std::string>& published) {
    Findings findings;
    const auto append = [&](const Findings& more) {
        findings.insert(findings.end(), more.begin(), more.end());
    };
    std::map<std::string, Digests> read;  // by file: several patches may share one
    std::set<std::string> seen;
    std::vector<ScriptFile> scripts;
    for (ManifestPatch& patch : manifest.patches) {
        if (!canBeRead(patch)) continue;
        try {
            const auto known = read.find(patch.file);
            patch.digests =
                known != read.end() ? known->second : (read[patch.file] = digestsOfSource(patch.file));
        } catch (const std::exception& e) {
            findings.push_back({Severity::error, patch.place, std::string("field \"file\": ") + e.what(),
                                "publish again when the file can be read and agents accept it"});
            continue;
        }
        append(md5Findings(patch));
        if (!isScript(patch) || !isRegularFile(patch.file) ||
            published.count(base::hexadecimal(patch.digests.sha256)) != 0)
            continue;
        if (seen.insert(patch.file).second) scripts.push_back({patch.place, patch.file});
    }
    for (const Findings& unparsed : scriptFindings(scripts))
        append(unparsed);
    return findings;
}

}  // namespace zelor::authoring
