#include "controller/run/BufferTrail.h"

#include <optional>
#include <utility>

#include "base/Strings.h"
#include "controller/Text.h"

namespace zelor::controller {

namespace {

using Kind = PatchOutcome::Kind;

/// What stands between the first `begin` and the last `end` behind it; to the end of the line for "".
std::optional<std::string> between(const std::string& line, const std::string& begin,
                                   const std::string& end) {
    const auto at = line.find(begin);
    if (at == std::string::npos) return std::nullopt;
    const std::string rest = line.substr(at + begin.size());
    if (end.empty()) return rest;
    const auto stop = rest.rfind(end);
    if (stop == std::string::npos) return std::nullopt;
    return rest.substr(0, stop);
}

constexpr char inJob[] = "(downloadPatchForBuffering) ";

std::string withoutTag(const std::string& line) {
    const auto end = line.find("] ");
    return end == std::string::npos ? line : line.substr(end + 2);
}

}  // namespace

void BufferTrail::take(bool error, const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::string job = inJob;
    if (const auto begun = between(line, job + "Patch '", "' will be buffered at ")) {
        problem_.clear();
        set(*begun, Kind::downloading, "");
    } else if (const auto added = between(line, "Added entry for successfully buffered patch = ", "")) {
        set(*added, Kind::buffered, "");
    } else if (const auto there = between(line, job + "patch \"", "\" is already buffered and is latest.")) {
        set(*there, Kind::alreadyBuffered, "");
    } else if (const auto large =
                   between(line, job + "Patch \"", "\" buffering skipped as it is exceeding ")) {
        set(*large, Kind::skipped,
            "it does not fit into what is left of the buffer's size; raise PatchesDirSizeMB");
    } else if (const auto failed = between(line, "Dowdnload patch failed for patch = ", "")) {
        set(*failed, Kind::skipped,
            problem_.empty() ? "the download was not finished; the next job resumes it" : problem_);
    } else if (const auto refused = between(line, job + "The patch name '", "' is refused: ")) {
        set(*refused, Kind::skipped, "its name is refused: " + *between(line, "' is refused: ", ""));
    } else if (base::contains(line, "Writing bufferedPatchesList.txt threw exception")) {
        endUnfinished("the list of buffered patches cannot be written");
    } else if (error) {
        problem_ = withoutTag(line);
    }
}

void BufferTrail::end(const std::string& reason) {
    const std::lock_guard<std::mutex> lock(mutex_);
    endUnfinished(reason);
}

void BufferTrail::endUnfinished(const std::string& reason) {
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
        const std::string patch = outcomes_[i].patch;
        if (outcomes_[i].kind == Kind::downloading) set(patch, Kind::skipped, reason);
    }
}

void BufferTrail::set(const std::string& patch, Kind kind, const std::string& reason) {
    const auto [place, isNew] = places_.emplace(patch, outcomes_.size());
    if (isNew) outcomes_.push_back({patch, kind, ""});
    PatchOutcome& outcome = outcomes_[place->second];
    // Another request may name a patch that this job has just buffered.
    if (outcome.kind == Kind::buffered && kind == Kind::alreadyBuffered) return;
    outcome.kind = kind;
    outcome.reason = base::printable(reason);
    news_.push_back(outcome);
}

std::vector<PatchOutcome> BufferTrail::outcomes() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return outcomes_;
}

std::vector<PatchOutcome> BufferTrail::takeNews() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return std::exchange(news_, {});
}

}  // namespace zelor::controller
