#include "agent/content/IndexFiles.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "agent/http/RepositoryUrl.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "trust/PathPattern.h"

namespace zelor::agent {

namespace {

constexpr const char* kRefusalFile = "refusal.txt";
constexpr std::size_t kRefusalLimit = 16U << 10U;
constexpr const char* kRootHistoryFile = "roots.txt";
constexpr std::size_t kRootHistoryLimit = 1U << 20U;

std::string fileName(const std::string& role) {
    return trust::percentEncoded(role) + ".json";
}

bool isTopLevel(const std::string& role) {
    constexpr std::array<const char*, 4> kRoles = {trust::kRootRole, trust::kTimestampRole,
                                                   trust::kSnapshotRole, trust::kTargetsRole};
    return std::find(kRoles.begin(), kRoles.end(), role) != kRoles.end();
}

}  // namespace

void IndexFetcher::begin(const Mirror& mirror, bool othersLeft, std::chrono::milliseconds longest,
                         StopSource stop) {
    mirror_ = mirror;
    othersLeft_ = othersLeft;
    deadline_ = Deadline(longest);
    stop_ = std::move(stop);
    silent_ = false;
    stopped_ = false;
    served_ = false;
}

base::Result<trust::Fetched> IndexFetcher::fetch(const std::string& path, std::size_t maximum) {
    RepositoryTurn turn(mirror_.outage, "metadata/" + path, othersLeft_);
    silent_ = !turn.mayAsk();
    if (silent_) return base::failure(turn.reason());
    HttpRequest request;
    request.url = mirror_.url + "/metadata/" + path;
    request.overdue = [this] { return deadline_.passed() || stop_(); };
    const auto client = clients_.lend();
    FetchedFile file = fetchFile(*client, request, maximum, retry_, deadline_, turn);
    const HttpResult& result = file.result;
    const std::string shown = withoutCredentials(request.url);
    stopped_ = result.outcome == HttpOutcome::interrupted || stop_();
    if (stopped_) return base::failure(shown + ": interrupted");
    if (file.tooLarge)
        return base::failure(shown + " is larger than the " + std::to_string(maximum) + " bytes allowed");
    const long status = result.head.status;
    const bool answered = result.outcome == HttpOutcome::answered;
    // 403 is how object stores say that a file is missing.
    if (answered && (status == 403 || status == 404 || status == 410)) return trust::Fetched{};
    served_ = served_ || (answered && status == 200);
    if (answered && status == 200) return trust::Fetched{true, std::move(file.body)};
    silent_ = answered ? statusIsTransient(status) : result.outcome != HttpOutcome::permanent;
    if (silent_) turn.gaveUp();
    return base::failure(shown + ": " +
                         (answered ? "the repository answered " + std::to_string(status) : result.error));
}

base::Result<std::optional<std::string>> IndexStore::read(const std::string& role, std::size_t maximum) {
    const std::string path = directory_ + '/' + fileName(role);
    if (::access(path.c_str(), F_OK) != 0 && errno == ENOENT) return std::optional<std::string>();
    try {
        return std::optional<std::string>(base::readBounded(path, maximum));
    } catch (const std::exception& e) {
        return base::failure(e.what());
    }
}

base::Check IndexStore::replace(const std::string& role, const std::string& bytes) {
    return replaceFile(fileName(role), bytes, isTopLevel(role));
}

base::Check IndexStore::remove(const std::string& role) {
    return removeFile(fileName(role));
}

std::string IndexStore::rootHistory() {
    return readText(kRootHistoryFile, kRootHistoryLimit);
}

base::Check IndexStore::replaceRootHistory(const std::string& text) {
    return replaceFile(kRootHistoryFile, text, true);
}

void IndexStore::setRefusal(const std::string& text) {
    if (text == refusal()) return;
    (void)(text.empty() ? removeFile(kRefusalFile) : replaceFile(kRefusalFile, text, false));
}

std::string IndexStore::refusal() const {
    return readText(kRefusalFile, kRefusalLimit);
}

/// "" when it cannot be read.
std::string IndexStore::readText(const std::string& name, std::size_t limit) const {
    const std::string path = directory_ + '/' + name;
    if (::access(path.c_str(), F_OK) != 0) return "";
    try {
        return base::readBounded(path, limit);
    } catch (const std::exception&) {
        return "";
    }
}

base::Check IndexStore::replaceFile(const std::string& name, const std::string& bytes, bool flush) {
    const std::string path = directory_ + '/' + name;
    try {
        // Opened for each change: the directory may have been removed and created again meanwhile.
        const base::UniqueFd directory = base::openPrivateDirectory(directory_);
        if (!flush) {
            base::replaceFileIn(directory, name, path, bytes);
            return {};
        }
        base::StagedFile file(directory.get(), name, ".new", 0600, path);
        file.write(bytes);
        file.commit();
        return {};
    } catch (const std::exception& e) {
        return base::failure(e.what());
    }
}

base::Check IndexStore::removeFile(const std::string& name) {
    const std::string path = directory_ + '/' + name;
    if (::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return {};
    return base::systemFailure("cannot remove " + path);
}

}  // namespace zelor::agent
