#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "remediation/RecordAccess.h"
#include "remediation/RunParts.h"
#include "tests/support/TempDir.h"

namespace zelor::test {

/// One ERI block in the words of a test.
struct Eri {
    std::string id{};
    std::string patchId{};
    bool reboot = false;
    std::string product = "cpe:/a:example:editor";
    std::string instructions{};
    std::string md5 = "0123";
    std::string size = "1 KB";
    std::string impact{};
    std::string silent{};
    std::string mskb{};
};

parsedEriData makeEri(const Eri& eri);
creEriParsedData makeCre(const std::string& id, const std::vector<Eri>& eris);

/// A small agent in memory and below one temporary directory: content by identifier, archives that are plain
/// text files, signatures that are the word "good". Each hook can inject a fault.
class FakeAgent {
  public:
    FakeAgent();
    ~FakeAgent();
    FakeAgent(const FakeAgent&) = delete;
    FakeAgent& operator=(const FakeAgent&) = delete;

    static FakeAgent& get();

    /// Content for an identifier; one without content fails to parse.
    void addContent(const std::string& identifier, const std::vector<Eri>& eris);
    /// A file in the repository: unpacked it is `text`, with a good signature or none.
    void addFile(const std::string& fileName, const std::string& text, bool goodSignature = true);
    /// The same as an archive in the buffer directory.
    void bufferFile(const std::string& fileName, const std::string& text);
    std::string archiveText(const std::string& fileName) const;

    std::string contentDir() const { return dir / "content"; }
    std::string installPath() const { return dir / "opt"; }
    std::string unzipDirectory() const { return dir / "unzip"; }
    std::string listPath() const { return dir / "unzip/bufferdPatchesList.txt"; }
    std::string bufferDir() const { return dir / "buffer"; }
    std::string recordPath() const { return dir / "var/log/zelor/ZelorInstalledPatches.txt"; }
    /// A shell script found through PATH under `name`.
    void addTool(const std::string& name, const std::string& script);

    /// Log lines so far, as "LEVEL text".
    std::vector<std::string> logLines() const;
    /// True when a line of the level has exactly this text.
    bool logged(const std::string& level, const std::string& text) const;
    int countLogged(const std::string& part) const;
    void addLogLine(const std::string& line);

    TempDir dir;
    std::set<std::string> specialCases;
    std::map<std::string, std::string> repository;  ///< stem to archive text
    std::string vendorInstallationType = "silent";
    std::string budgetMegabytes = "2000";
    std::string speedPercent = "25";
    int speedStatus = 200;
    unsigned long speed = 1000000;
    std::vector<std::string> calls;  ///< what the library asked for, in order
    std::function<void(const std::string& stem)> beforeDownload;
    std::function<void(const std::string& identifier)> beforeGetCre;
    /// Called before the line is kept. It must not make the library log.
    std::function<void(const std::string& line)> onLogLine;
    std::map<std::string, parseOnlyMetadata> content;

  private:
    mutable std::mutex logMutex_;
    std::vector<std::string> log_;
    std::string oldPath_;
};

}  // namespace zelor::test

struct RemediationManagerPeer {
    template <class Manager>
    static auto& cveRows(Manager& manager) {
        return manager.remMetadataForCVE;
    }
    template <class Manager>
    static auto& cceRows(Manager& manager) {
        return manager.remMetadataForCCE;
    }
    template <class Manager>
    static void setInternalError(Manager& manager) {
        manager.internalError = true;
    }
    template <class Manager>
    static void count(Manager& manager, const remediateMetadata& row) {
        manager.parts->progress.addRemediation(row);
    }
    template <class Manager>
    static auto& duplicates(Manager& manager) {
        return manager.removedDuplicateEriMap;
    }
    template <class Manager>
    static void setFlags(Manager& manager, bool failed, bool succeeded) {
        manager.anyRemSucceeded = succeeded;
        manager.allRemFailed = failed;
    }
    template <class Manager>
    static void resetRecord(Manager& manager) {
        manager.parts->applied.reset();
    }
    template <class Manager>
    static bool firstAfterScan(Manager& manager) {
        return manager.firstRemediationAfterScan;
    }
};
