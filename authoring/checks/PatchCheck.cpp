#include "authoring/checks/PatchCheck.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <optional>
#include <set>

#include "agent/archive/ArchiveExtractor.h"
#include "agent/trust/Signature.h"
#include "authoring/checks/FileChecks.h"
#include "authoring/publish/Digests.h"
#include "base/Directories.h"
#include "platform/macos/InstallerKinds.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

/// One patch being checked; the first fault that makes the rest meaningless ends it.
class PatchCheck {
  public:
    PatchCheck(const std::string& repository, const std::string& keyFile, const std::string& patchId,
               const std::vector<PatchUse>& uses, ScriptQueue& scripts)
        : keyFile_(keyFile),
          patchId_(patchId),
          uses_(uses),
          scripts_(scripts),
          name_(*remediation::splitAtLastDot(patchId)),
          place_("patches/" + name_.stem + ".zip"),
          archive_(repository + '/' + place_),
          detached_(repository + "/patches/" + name_.stem + ".sig"),
          path_(scratch_.path() + '/' + patchId),
          signatureName_(remediation::signaturePath(patchId, name_.extension)) {}

    Findings run() {
        if (unpack() && findPatch()) {
            checkSignatures();
            checkKind();
            checkAgainstContent();
            const bool script =
                std::any_of(uses_.begin(), uses_.end(), [](const PatchUse& use) { return use.script; });
            if (script && fs::is_regular_file(path_)) scripts_.add(place_, path_);
        }
        return std::move(findings_);
    }

  private:
    void add(Severity severity, const std::string& what, const std::string& remedy) {
        findings_.push_back({severity, place_, what, remedy});
    }
    void append(const Findings& more) { findings_.insert(findings_.end(), more.begin(), more.end()); }

    bool unpack() {
        boost::system::error_code ignored;
        if (!fs::exists(archive_, ignored)) {
            for (const PatchUse& use : uses_) {
                findings_.push_back({Severity::error, use.place,
                                     "patch \"" + patchId_ + "\" has no archive " + place_ +
                                         ", so the request ends as file-unavailable",
                                     "publish the patch, or withdraw the content"});
            }
            return false;
        }
        try {
            agent::ArchiveExtractor().extract(archive_, scratch_.path());
        } catch (const std::exception& e) {
            add(Severity::error, std::string("agents refuse to unpack it: ") + e.what(),
                "find out who changed it, then remove it and publish the patch again");
            return false;
        }
        return true;
    }

    bool findPatch() {
        std::set<std::string> others;
        for (fs::directory_iterator it(scratch_.path()), end; it != end; ++it)
            others.insert(it->path().filename().string());
        const bool found = others.erase(patchId_) != 0;
        if (others.erase(signatureName_) == 0) {
            add(Severity::error, "it does not contain the signature " + signatureName_,
                "remove it and publish the patch again");
        }
        if (!found) {
            add(Severity::error, "it does not contain \"" + patchId_ + "\"",
                "remove it and publish the patch again");
        }
        for (const std::string& other : others) {
            add(Severity::warning,
                "it also contains \"" + other +
                    "\", which is unpacked beside the run's files without a check",
                "publish one patch per archive");
        }
        return found;
    }

    void checkSignatures() {
        boost::system::error_code ignored;
        const std::string inner = scratch_.path() + '/' + signatureName_;
        if (fs::exists(inner, ignored)) {
            const agent::SignatureVerdict verdict = agent::verifyPath(path_, inner, keyFile_);
            if (!verdict.good) {
                add(Severity::error, "\"" + patchId_ + "\" fails its signature check: " + verdict.reason,
                    "find out who changed it; if it is right, remove the archive and publish the patch "
                    "again");
            }
        }
        const agent::SignatureVerdict beside = agent::verifyPath(path_, detached_, keyFile_);
        if (!beside.good) {
            add(Severity::warning,
                "the signature beside it, " + name_.stem + ".sig, is not valid: " + beside.reason,
                "publish the patch again");
        }
    }

    void checkKind() {
        for (const PatchUse& use : uses_) {
            append(kindFindings(use.place, patchId_, use.script, path_));
            if (use.script) break;
        }
        const bool installed =
            std::any_of(uses_.begin(), uses_.end(), [](const PatchUse& use) { return !use.script; });
        if (installed && platform::isInstalledBy(platform::InstallMethod::mountImage, patchId_) &&
            fs::is_regular_file(path_))
            append(imageFindings(place_, patchId_, path_));
    }

    void checkAgainstContent() {
        bool directory = false;
        Digests digests;
        try {
            digests = digestsOfSource(path_, &directory);
        } catch (const std::exception& e) {
            add(Severity::error, e.what(), "publish the patch again without it");
            return;
        }
        const agent::FileDigest archiveDigest = fileDigest(digestsOfFile(archive_));
        const std::uint64_t archiveBytes = archiveDigest.length;
        for (const PatchUse& use : uses_) {
            if (!use.check) {
                append(sizeFindings(use.place, use.eri.size, archiveBytes,
                                    directory ? archiveBytes : digests.bytes));
            }
            checkDigest(use.place, "\"" + patchId_ + "\"", use.eri.file, fileDigest(digests));
            checkDigest(use.place, place_, use.eri.archive, archiveDigest);
            if (use.check || use.eri.md5 == digests.md5) continue;
            findings_.push_back({Severity::error, use.place,
                                 "md5 \"" + use.eri.md5 + "\" is not that of \"" + patchId_ + "\", " +
                                     digests.md5 + ": an outdated buffered copy could be taken for this one",
                                 "publish the entry again"});
        }
    }

    void checkDigest(const std::string& place, const std::string& name,
                     const std::optional<agent::FileDigest>& said, const agent::FileDigest& actual) {
        if (said == actual) return;
        findings_.push_back({Severity::error, place,
                             said ? name + " is not that of its content: it has " + agent::describe(actual) +
                                        ", and the content asks for " + agent::describe(*said) +
                                        ", so agents refuse it"
                                  : "it gives no digest of " + name +
                                        ", so agents with RequireDigests refuse it, and others "
                                        "take whatever this key signed",
                             "publish the entry again"});
    }

    const std::string& keyFile_;
    const std::string& patchId_;
    const std::vector<PatchUse>& uses_;
    ScriptQueue& scripts_;
    base::TemporaryDirectory scratch_{"zelor-check"};
    remediation::PatchName name_;
    std::string place_, archive_, detached_, path_, signatureName_;
    Findings findings_;
};

}  // namespace

Findings patchFindings(const std::string& repository, const std::string& keyFile, const std::string& patchId,
                       const std::vector<PatchUse>& uses, ScriptQueue& scripts) {
    return PatchCheck(repository, keyFile, patchId, uses, scripts).run();
}

}  // namespace zelor::authoring
