#include "controller/plan/PlanState.h"

#include <algorithm>

#include "controller/plan/PlanWarnings.h"
#include "remediation/RecordAccess.h"
#include "remediation/buffer/BufferedList.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"

namespace zelor::controller {

bool PlanState::isRecorded(const std::string& eri) const {
    return recorded_.count(eri) != 0 || facts_.isRecorded(eri);
}

PlannedFile PlanState::fetch(parsedEriData& block) const {
    PlannedFile file;
    file.name = RecordAccess::patchId(block);
    file.sizeText = RecordAccess::patchSize(block);
    if (const base::Check fetchable = remediation::checkFetchable(file.name); !fetchable) {
        file.problem = "the file name is refused: " + fetchable.error().text;
        return file;
    }
    const std::string extension = remediation::splitAtLastDot(file.name)->extension;
    if (remediation::signaturePath(pathOf(file.name), extension) !=
        pathOf(remediation::signaturePath(file.name, extension))) {
        file.problem =
            "its signature is not looked for beside it, since the content directory's path contains " +
            extension;
    }
    const std::string archive = remediation::archiveName(file.name);
    file.buffered = bufferFiles_.count(remediation::bufferedArchiveName(file.name)) != 0 &&
                    remediation::hasBufferedLine(bufferedList_, file.name, RecordAccess::md5sum(block));
    if (!file.buffered) {
        const auto partial = facts_.partialFiles.find(archive);
        if (partial != facts_.partialFiles.end()) file.partialBytes = partial->second;
        const std::string refused = facts_.digestProblem(archive, file.name);
        if (!refused.empty()) file.problem = refused;
        return file;
    }
    const auto there = bufferFiles_.find(archive);
    if (there == bufferFiles_.end()) {
        file.problem = "the buffer's list has it, but the buffer has no " + archive;
        return file;
    }
    file.bytes = there->second;
    file.checked = true;
    const std::string refused = facts_.signatureProblem(archive, file.name);
    if (!refused.empty()) file.problem = "in the buffer, but refused: " + refused;
    return file;
}

void PlanState::settle(const remediation::BlockResult& result) {
    if (result.appliedNow()) {
        const std::string& eri = RecordAccess::eriId(*result.block);
        if (remediation::isRecordable(eri)) recorded_.insert(eri);
    }
    if (result.dropsBuffered) {
        const std::string& name = RecordAccess::patchId(*result.block);
        bufferFiles_.erase(remediation::bufferedArchiveName(name));
        remediation::ListDamage damage;
        bufferedList_ = remediation::linesWithout(bufferedList_, name, damage);
    }
}

const std::vector<std::string>& PlanState::listing() {
    if (!listing_) listing_ = facts_.updateListing();
    return *listing_;
}

platform::UpdateOutcome PlanState::install(const platform::UpdateStep& step, std::string& problem) {
    problem.clear();
    if (step.command.empty()) {
        problem = "a label that begins with a dash is refused";
        return platform::UpdateOutcome::failed;
    }
    if (isListed(step.label, listing())) {
        const auto same = [&](const std::string& line) { return listedLabel(line) == step.label; };
        listing_->erase(std::remove_if(listing_->begin(), listing_->end(), same), listing_->end());
        return platform::UpdateOutcome::installed;
    }
    problem = isListedWithBlanks(step.label, listing())
                  ? "its last update is listed with white space at its end, so its name is not known"
                  : "its last update is installed by then, or its label is too long to be read";
    return platform::UpdateOutcome::nothingToDo;
}

}  // namespace zelor::controller
