#include <algorithm>
#include <sstream>
#include <unordered_set>
#include <utility>

#include "base/Strings.h"
#include "controller/plan/Plan.h"
#include "controller/plan/PlanWarnings.h"
#include "platform/macos/InstallerKinds.h"
#include "platform/macos/UpdateSelection.h"
#include "remediation/RecordAccess.h"
#include "remediation/buffer/BufferedList.h"
#include "remediation/fetch/PatchName.h"
#include "remediation/intake/ContentRules.h"
#include "remediation/intake/RequestParsing.h"

namespace zelor::controller {

namespace {

constexpr ProgressValue kFailedValue = 5;
constexpr ProgressValue kUnavailableValue = 12;

struct Row {
    PlannedRequest request;
    std::string packageName;
    creEriParsedData entry;

    std::vector<parsedEriData>& blocks() { return RecordAccess::blocks(entry); }
};

/// Goes through the requests in the order of a run, and keeps account of what each of them leaves behind for
/// the next: in the record, the buffer, the listing.
class Forecast {
  public:
    explicit Forecast(const PlanFacts& facts)
        : facts_(facts), bufferedList_(facts.bufferedList), bufferFiles_(facts.bufferFiles) {}

    Plan make(const RequestMap& requests);

  private:
    void take(const std::string& key, const std::string& identifier);
    bool findContent(Row& row, const std::vector<std::string>& cpes) const;

    void configure(Row& row);
    PlannedStep script(Row& row, parsedEriData& block);

    void patch(Row& row);
    PlannedStep patchBlock(Row& row, parsedEriData& block, ProgressValue& value);
    void installFile(Row& row, parsedEriData& block, PlannedStep& step, ProgressValue& value);
    void describeInstaller(Row& row, parsedEriData& block, const platform::InstallerKind& kind,
                           PlannedStep& step) const;

    void update(Row& row);
    std::string foreseeUpdate(const platform::UpdateStep& step);

    PlannedFile fetch(Row& row, parsedEriData& block, bool script) const;
    bool isBuffered(const std::string& name, const std::string& md5) const;
    void succeed(parsedEriData& block, const PlannedFile& file);
    std::string pathOf(const std::string& name) const { return facts_.contentDir + '/' + name; }

    bool isApplied(const creEriParsedData& entry) const {
        return remediation::countsAsApplied(entry,
                                            [this](const std::string& eri) { return isRecorded(eri); });
    }
    bool isRecorded(const std::string& eri) const {
        return applied_.count(eri) != 0 || facts_.isRecorded(eri);
    }
    std::string whyApplied(Row& row, const std::string& eri) const;

    const PlanFacts& facts_;
    std::unordered_set<std::string> applied_;  ///< ERIs, by requests before
    std::string bufferedList_;
    std::map<std::string, std::uint64_t> bufferFiles_;
    std::optional<std::vector<std::string>> listing_;
    std::vector<PlannedRequest> refused_;
    std::vector<Row> rows_;
    bool rebootNeeded_ = false;
};

void decide(PlannedRequest& request, ProgressValue value, PlanAction action, std::string reason) {
    request.expected = value;
    request.action = action;
    request.reason = std::move(reason);
}

void warn(PlannedRequest& request, std::vector<std::string> warnings) {
    for (std::string& warning : warnings) {
        std::vector<std::string>& all = request.warnings;
        if (std::find(all.begin(), all.end(), warning) == all.end()) all.push_back(std::move(warning));
    }
}

Plan Forecast::make(const RequestMap& requests) {
    for (const auto& [key, identifier] : requests)
        take(key, identifier);
    Plan plan;
    plan.requests = std::move(refused_);
    for (const PlanKind kind : {PlanKind::configuration, PlanKind::osUpdate, PlanKind::patch}) {
        for (Row& row : rows_) {
            if (row.request.kind != kind) continue;
            if (kind == PlanKind::configuration) configure(row);
            if (kind == PlanKind::osUpdate) update(row);
            if (kind == PlanKind::patch) patch(row);
            plan.requests.push_back(std::move(row.request));
        }
    }
    plan.rebootNeeded = rebootNeeded_;
    addMutualWarnings(plan.requests, facts_.bufferedList);
    plan.warnings = restartWarnings(plan.requests);
    return plan;
}

void Forecast::take(const std::string& key, const std::string& identifier) {
    Row row;
    PlannedRequest& request = row.request;
    request.key = key;
    request.identifier = identifier;
    const bool configuration = remediation::isConfiguration(base::trimmed(identifier));
    const remediation::RequestKey parsed = remediation::parseRequestKey(base::trimmed(key), configuration);
    row.packageName = parsed.packageName;
    const auto invalid = facts_.invalid.find(key);
    const remediation::CpeCount names = remediation::cpeCount(parsed);
    if (names == remediation::CpeCount::usable) warn(request, keyWarnings(parsed.cpes, facts_.platformCpe));
    if (invalid != facts_.invalid.end() || names != remediation::CpeCount::usable) {
        decide(request, kInvalidRequestValue, PlanAction::fail,
               invalid != facts_.invalid.end() ? invalid->second : keyProblem(names));
    } else if (findContent(row, parsed.cpes)) {
        if (configuration) request.kind = PlanKind::configuration;
        rows_.push_back(std::move(row));
        return;
    } else {
        decide(request, kContentFailedValue, PlanAction::fail, facts_.contentProblem(key, identifier));
    }
    refused_.push_back(std::move(request));
}

bool Forecast::findContent(Row& row, const std::vector<std::string>& cpes) const {
    const remediation::RequestTarget target =
        remediation::requestTarget(cpes, facts_.platformCpe, facts_.specialCases);
    parseOnlyMetadata metadata =
        facts_.content(target.platformCpe, target.productCpe, base::trimmed(row.request.identifier));
    if (metadata.getParsingFailed()) return false;
    row.entry = std::move(RecordAccess::creEriData(metadata));
    row.request.cre = RecordAccess::creId(row.entry);
    row.request.reboot = remediation::asksForReboot(row.entry);
    row.request.kind = remediation::isOsRemediation(row.blocks()) ? PlanKind::osUpdate : PlanKind::patch;
    return true;
}

/// Why an ERI counts as applied; one that counts so by another of its CRE is reported.
std::string Forecast::whyApplied(Row& row, const std::string& eri) const {
    if (isRecorded(eri)) return eri + " is recorded as applied";
    const std::vector<std::string>& eris = RecordAccess::eriIds(row.entry);
    const auto other =
        std::find_if(eris.begin(), eris.end(), [this](const std::string& id) { return isRecorded(id); });
    const std::string recorded = other == eris.end() ? "another ERI" : *other;
    warn(row.request, {eri + " is not applied: " + recorded +
                       " of the same CRE is recorded by then, which makes the whole CRE count as applied"});
    return "counts as applied, since " + recorded + " of the same CRE is recorded";
}

// Configurations: the first block that does not succeed decides.

void Forecast::configure(Row& row) {
    PlannedRequest& request = row.request;
    if (isApplied(row.entry)) {
        for (parsedEriData& block : row.blocks()) {
            const std::string& eri = RecordAccess::eriId(block);
            request.steps.push_back({eri, PlanAction::applied, whyApplied(row, eri), {}, {}, ""});
        }
        decide(request, kSuccessValue, PlanAction::applied,
               request.steps.empty() ? "" : request.steps.front().reason);
    } else {
        decide(request, kSuccessValue, PlanAction::apply, "");
        if (row.blocks().empty()) decide(request, kInvalidRequestValue, PlanAction::fail, "it has no ERI");
        for (parsedEriData& block : row.blocks()) {
            request.steps.push_back(script(row, block));
            if (request.expected != kSuccessValue) break;
        }
    }
    if (request.expected == kSuccessValue && request.reboot) rebootNeeded_ = true;
}

PlannedStep Forecast::script(Row& row, parsedEriData& block) {
    PlannedStep step{RecordAccess::eriId(block), PlanAction::apply, "", {}, {}, ""};
    const std::string& name = RecordAccess::patchId(block);
    if (!remediation::namesPatchFile(name)) {
        step.action = PlanAction::fail;
        step.reason = "its content names no script with an extension";
        decide(row.request, kInvalidRequestValue, PlanAction::fail, step.reason);
        return step;
    }
    step.file = fetch(row, block, true);
    if (step.file->problem.empty()) {
        step.commands.push_back("/bin/bash " + base::shellWord(pathOf(name)));
        succeed(block, *step.file);
    } else {
        step.action = PlanAction::fail;
        step.reason = step.file->problem;
        decide(row.request, kUnavailableValue, PlanAction::fail, step.reason);
    }
    return step;
}

// Patches of products: every block is tried, the last one decides.

void Forecast::patch(Row& row) {
    PlannedRequest& request = row.request;
    bool installs = false;
    bool failsBefore = false;
    for (parsedEriData& block : row.blocks()) {
        if (request.expected > kSuccessValue) failsBefore = true;
        request.steps.push_back(patchBlock(row, block, request.expected));
        const PlannedStep& step = request.steps.back();
        if (step.action == PlanAction::apply) installs = true;
        if (step.action != PlanAction::nothing || request.reason.empty()) request.reason = step.reason;
        const bool good = step.action == PlanAction::apply || step.action == PlanAction::applied;
        if (good && request.reboot) rebootNeeded_ = true;
    }
    if (request.steps.empty()) request.reason = "its content has no ERI";
    if (request.expected == kSuccessValue) {
        request.action = installs ? PlanAction::apply : PlanAction::applied;
        if (failsBefore) warn(request, {"an ERI before the last fails, and the last one decides"});
        if (installs) request.reason.clear();
    } else if (request.expected != 0) {
        request.action = PlanAction::fail;
    }
}

PlannedStep Forecast::patchBlock(Row& row, parsedEriData& block, ProgressValue& value) {
    PlannedStep step{RecordAccess::eriId(block), PlanAction::fail, "", {}, {}, ""};
    if (!remediation::isForThisPlatform(block)) {
        step.action = PlanAction::nothing;
        step.reason = "for another platform (" + RecordAccess::mskbId(block) + "), so it is passed over";
        return step;
    }
    switch (remediation::patchStep(block, [&] { return isApplied(row.entry); })) {
        case remediation::PatchStep::nameless:
            value = kFailedValue;
            step.reason = "its content names no patch";
            break;
        case remediation::PatchStep::applied:
            value = kSuccessValue;
            step.action = PlanAction::applied;
            step.reason = whyApplied(row, step.eri);
            break;
        case remediation::PatchStep::misnamed:
            value = kInvalidRequestValue;
            step.reason = "the name of its patch has no extension";
            break;
        case remediation::PatchStep::install:
            installFile(row, block, step, value);
            break;
    }
    return step;
}

void Forecast::installFile(Row& row, parsedEriData& block, PlannedStep& step, ProgressValue& value) {
    step.file = fetch(row, block, false);
    if (!step.file->problem.empty()) {
        value = kUnavailableValue;
        step.reason = step.file->problem;
        return;
    }
    const platform::InstallerKind* const kind = platform::installerKindOf(pathOf(step.file->name));
    if (kind == nullptr) {
        value = kFailedValue;
        step.reason = "no installer takes it: it is no " + platform::installableText();
        return;
    }
    value = kSuccessValue;
    step.action = PlanAction::apply;
    describeInstaller(row, block, *kind, step);
    succeed(block, *step.file);
}

void Forecast::describeInstaller(Row& row, parsedEriData& block, const platform::InstallerKind& kind,
                                 PlannedStep& step) const {
    const bool usesInstaller = remediation::usesBundleInstaller(block);
    const std::string& option = RecordAccess::silentModeCmd(block);
    platform::InstallerSteps steps = platform::installerSteps(
        kind, {pathOf(step.file->name), facts_.mountPoint, facts_.applications, usesInstaller, option});
    step.commands = std::move(steps.commands);
    step.note = std::move(steps.note);
    if (steps.readsSuccessUnseen)
        warn(row.request, imageWarnings(step.file->name, usesInstaller && option.empty(),
                                        facts_.mountPointInUse ? facts_.mountPoint : ""));
}

// Updates of the system.

void Forecast::update(Row& row) {
    PlannedRequest& request = row.request;
    if (!remediation::installsVendorUpdates(facts_.vendorInstallation)) {
        request.reason = "the setting Installation.VendorProducts leaves updates of the system to the user";
        return;
    }
    if (!listing_) listing_ = facts_.updateListing();
    const platform::UpdateSelection selection =
        platform::selectUpdates(*listing_, row.packageName, facts_.productVersion);
    const std::vector<platform::UpdateStep> steps = platform::updateSteps(selection);
    if (steps.empty()) {
        decide(request, kFailedValue, PlanAction::fail,
               listing_->empty() ? "softwareupdate lists no update"
                                 : "softwareupdate lists no update that belongs to it");
        return;
    }
    warn(request, updateWarnings(selection, *listing_));
    if (request.reboot)
        warn(request, {"an update of the system needs a restart, which rebootNeeded leaves out; see "
                       "restartNeededByThisRun in the run's results"});
    std::string problem;
    for (const platform::UpdateStep& step : steps) {
        request.labels.push_back(step.label);
        problem = foreseeUpdate(step);
        if (!step.command.empty()) request.commands.push_back(step.command);
    }
    const bool good = problem.empty();
    decide(request, good ? kSuccessValue : kFailedValue, good ? PlanAction::apply : PlanAction::fail,
           problem);
}

/// Why a step would not succeed, "" when it would. An update that is installed is listed no more.
std::string Forecast::foreseeUpdate(const platform::UpdateStep& step) {
    if (step.command.empty()) return "a label that begins with a dash is refused";
    if (isListed(step.label, *listing_)) {
        const auto same = [&](const std::string& line) { return listedLabel(line) == step.label; };
        listing_->erase(std::remove_if(listing_->begin(), listing_->end(), same), listing_->end());
        return "";
    }
    if (step.succeeds(platform::UpdateOutcome::nothingToDo)) return "";
    return isListedWithBlanks(step.label, *listing_)
               ? "its last update is listed with white space at its end, so its name is not known"
               : "its last update is installed by then, or its label is too long to be read";
}

// Files.

PlannedFile Forecast::fetch(Row& row, parsedEriData& block, bool script) const {
    PlannedFile file;
    file.name = RecordAccess::patchId(block);
    file.sizeText = RecordAccess::patchSize(block);
    const std::string refusedName = remediation::whyNotFetched(file.name);
    if (!refusedName.empty()) {
        file.problem = "the file name is refused: " + refusedName;
        return file;
    }
    const auto name = remediation::splitAtLastDot(file.name);
    warn(row.request, patchWarnings(file.name, file.sizeText, pathOf(file.name), script));
    if (remediation::signaturePath(pathOf(file.name), name->extension) !=
        pathOf(remediation::signaturePath(file.name, name->extension))) {
        file.problem = "its signature is looked for elsewhere, since the content directory's path holds " +
                       name->extension;
    }
    const std::string archive = name->stem + ".zip";
    file.buffered = isBuffered(file.name, RecordAccess::md5sum(block));
    if (!file.buffered) {
        const auto partial = facts_.partialFiles.find(archive);
        if (partial != facts_.partialFiles.end()) file.partialBytes = partial->second;
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

bool Forecast::isBuffered(const std::string& name, const std::string& md5) const {
    if (bufferFiles_.count(remediation::bufferedArchiveName(name)) == 0) return false;
    std::istringstream lines(bufferedList_);
    for (std::string line; std::getline(lines, line);) {
        if (remediation::bufferedLineMatches(line, name, md5)) return true;
    }
    return false;
}

void Forecast::succeed(parsedEriData& block, const PlannedFile& file) {
    const std::string& eri = RecordAccess::eriId(block);
    if (remediation::isRecordable(eri)) applied_.insert(eri);
    if (!file.buffered) return;
    bufferFiles_.erase(remediation::bufferedArchiveName(file.name));
    remediation::ListDamage damage;
    bufferedList_ = remediation::linesWithout(bufferedList_, file.name, damage);
}

}  // namespace

Plan makePlan(const RequestMap& requests, const PlanFacts& facts) {
    return Forecast(facts).make(requests);
}

}  // namespace zelor::controller
