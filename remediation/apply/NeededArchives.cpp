#include "remediation/apply/NeededArchives.h"

#include <unordered_set>

#include "remediation/RecordAccess.h"
#include "remediation/apply/ContentWalk.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::remediation {

namespace {

using EriIds = std::unordered_set<std::string>;

/// Walks through the content of one request, installs nothing, and notes what would be fetched.
class ArchiveForesight : public ContentActor {
  public:
    ArchiveForesight(const std::string& key, const creEriParsedData& entry, const ArchiveFacts& facts,
                     EriIds& recorded, std::vector<NeededArchive>& archives)
        : key_(key), entry_(entry), facts_(facts), recorded_(recorded), archives_(archives) {}

    bool isApplied() override {
        return countsAsApplied(entry_, [this](const std::string& eriId) {
            return recorded_.count(eriId) != 0 || facts_.isRecorded(eriId);
        });
    }
    std::optional<FetchedFile> fetch(parsedEriData& block) override {
        const std::string& fileName = RecordAccess::patchId(block);
        if (!checkFetchable(fileName)) return FetchedFile{};
        if (!facts_.isBuffered(fileName, RecordAccess::md5sum(block))) {
            PatchName name = *splitAtLastDot(fileName);
            archives_.push_back({key_, std::move(name.stem), std::move(name.extension)});
        }
        return FetchedFile{fileName, false, false};
    }
    int apply(parsedEriData& /*block*/, const std::string& /*path*/,
              const platform::InstallerKind* /*kind*/) override {
        return kInstalled;
    }
    void settle(const BlockResult& result) override {
        if (!result.appliedNow()) return;
        const std::string& eriId = RecordAccess::eriId(*result.block);
        if (isRecordable(eriId)) recorded_.insert(eriId);
    }

  private:
    const std::string& key_;
    const creEriParsedData& entry_;
    const ArchiveFacts& facts_;
    EriIds& recorded_;
    std::vector<NeededArchive>& archives_;
};

}  // namespace

std::vector<NeededArchive> neededArchives(const RequestRows& rows, const ArchiveFacts& facts) {
    std::vector<NeededArchive> archives;
    EriIds recorded;
    for (std::vector<remediateMetadata>* list : {&rows.configurations, &rows.patches}) {
        for (remediateMetadata& row : *list) {
            const std::string& key = RecordAccess::combinedCpes(row);
            const bool patch = list == &rows.patches;
            if (!RecordAccess::creEriDataPresent(row) || (patch && RecordAccess::osRemediation(row)) ||
                facts.isCancelled(key))
                continue;
            creEriParsedData& entry = RecordAccess::creEriData(row);
            ArchiveForesight foresight(key, entry, facts, recorded, archives);
            patch ? walkPatch(entry, foresight) : walkConfiguration(entry, foresight);
        }
    }
    return archives;
}

}  // namespace zelor::remediation
