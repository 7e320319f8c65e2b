#include "agent/content/ContentLibrary.h"

#include <atomic>
#include <stdexcept>
#include <utility>

#include "agent/AgentSettings.h"
#include "agent/ContentCacheControl.h"
#include "agent/http/RepositoryUrl.h"
#include "agent/log/FailureLine.h"
#include "agent/trust/Signature.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"

namespace zelor::agent {

namespace {

using Clock = std::chrono::steady_clock;
using Kind = ContentAnswer::Kind;

constexpr std::chrono::minutes kTrustedTime{10};
constexpr std::chrono::seconds kMissingTime{5};  ///< how long "there is none" is believed within a run

std::atomic<std::uint64_t>& runNumber() {
    static std::atomic<std::uint64_t> number{1};
    return number;
}

bool isFresh(const CachedContent& cached, std::uint64_t run) {
    const Clock::duration trusted =
        cached.document ? Clock::duration(kTrustedTime) : Clock::duration(kMissingTime);
    return cached.run == run && Clock::now() - cached.confirmed < trusted;
}

SignatureVerdict checkSignature(const SignedContent& content) {
    const auto settings = AgentSettings::current();
    const std::string& key = settings->values().trustedKey;
    if (key.empty()) {
        return {false, "Repository.TrustedKey is not set; name the public key in " + settings->iniFile()};
    }
    return verifyBytes(content.xml, content.signature, key);
}

void reportUnusable(const std::string& identifier, const std::string& problem) {
    logFailure("[CreCacher] no usable content for " + identifier + ": " + problem);
}

}  // namespace

void startNewRun() {
    ++runNumber();
}

std::uint64_t currentRun() {
    return runNumber();
}

ContentLibrary::Document ContentLibrary::get(const std::string& identifier) {
    if (!isContentIdentifier(identifier)) {
        reportUnusable(identifier, "an identifier has at most 128 letters, digits, '.', '_' and '-'");
        return nullptr;
    }
    const std::uint64_t run = currentRun();
    std::optional<CachedContent> cached = cache_.get(identifier);
    if (cached && isFresh(*cached, run)) {
        if (!cached->document)
            CallReport::addReason("no usable content for " + identifier + ": " + cached->problem);
        return cached->document;
    }
    return refresh(identifier, run, std::move(cached));
}

ContentLibrary::Document ContentLibrary::refresh(const std::string& identifier, std::uint64_t run,
                                                 std::optional<CachedContent> cached) {
    Kept kept;
    if (cached && cached->document) {
        kept = {cached->document, {"", "", cached->etag, cached->lastModified}};
    } else {
        kept = readKept(identifier);
    }
    ContentAnswer answer = ask(identifier, kept);
    Document document;
    switch (answer.kind) {
        case Kind::fresh:
            document = accept(identifier, answer.content, answer.problem);
            kept.version = std::move(answer.content);
            break;
        case Kind::unchanged:
            document = kept.document;
            break;
        case Kind::noAnswer:
            document = kept.document;
            if (document) {
                log::info("[CreCacher] using the copy kept of ", identifier, ": ", answer.problem);
            } else {
                reportUnusable(identifier, answer.problem + "; check that the repository can be reached");
                return nullptr;
            }
            break;
        case Kind::stopped:
            log::info("[CreCacher] stopped asking for ", identifier);
            return nullptr;
        case Kind::none:
            reportUnusable(identifier, answer.problem);
            removeFile(identifier);
            break;
        case Kind::refused:
            reportUnusable(identifier, answer.problem);
            break;
    }
    cache_.put(identifier, {document, kept.version.etag, kept.version.lastModified, run, Clock::now(),
                            std::move(answer.problem)});
    return document;
}

ContentLibrary::Kept ContentLibrary::readKept(const std::string& identifier) const {
    std::optional<SignedContent> content = store_.read(identifier);
    if (!content) return {};
    try {
        const SignatureVerdict verdict = checkSignature(*content);
        if (!verdict.good) throw std::runtime_error(verdict.reason);
        auto document =
            std::make_shared<const ContentDocument>(ContentDocument::parse(content->xml, identifier));
        return {std::move(document), std::move(*content)};
    } catch (const std::exception& e) {
        log::info("[CreCacher] fetching ", identifier, " anew, the copy kept is not good: ", e.what());
        return {};
    }
}

ContentAnswer ContentLibrary::ask(const std::string& identifier, const Kept& kept) {
    try {
        const auto settings = AgentSettings::current();
        const std::string repository = repositoryUrl(*settings);
        if (auto came = ahead_.take(identifier, kept.version)) return std::move(*came);
        RepositoryTurn turn(RepositoryOutage::ofRun(repository), identifier);
        ContentAnswer answer{Kind::noAnswer, {}, turn.reason()};
        if (turn.mayAsk()) {
            const auto client = clients_.lend();
            answer = fetchContent(*client, repository, identifier, kept.version, retry_,
                                  std::chrono::seconds(settings->values().contentSeconds), turn);
        }
        if (answer.kind == Kind::noAnswer) {
            turn.gaveUp();
            if (!kept.document && turn.isDown()) CallReport::addReason(turn.reason(answer.problem));
        }
        return answer;
    } catch (const std::exception& e) {
        return {Kind::noAnswer, {}, e.what()};
    }
}

ContentLibrary::Document ContentLibrary::accept(const std::string& identifier, const SignedContent& content,
                                                std::string& problem) {
    const SignatureVerdict verdict = checkSignature(content);
    if (!verdict.good) {
        problem = verdict.reason + "; sign and publish it again";
        reportUnusable(identifier, problem);
        return nullptr;
    }
    Document document;
    try {
        document = std::make_shared<const ContentDocument>(ContentDocument::parse(content.xml, identifier));
    } catch (const std::exception& e) {
        problem = std::string(e.what()) + "; correct and publish it again";
        reportUnusable(identifier, problem);
        return nullptr;
    }
    try {
        store_.write(identifier, content);
    } catch (const std::exception& e) {
        log::error("[CreCacher] cannot keep the content for ", identifier, ": ", e.what(),
                   "; free space or correct its permissions");
    }
    return document;
}

void ContentLibrary::fetchAhead(const std::vector<std::string>& identifiers) {
    try {
        const auto settings = AgentSettings::current();
        const std::uint64_t run = currentRun();
        std::vector<std::string> unknown;
        for (const std::string& identifier : identifiers) {
            if (!isContentIdentifier(identifier)) continue;
            const std::optional<CachedContent> cached = cache_.get(identifier);
            if (!cached || !isFresh(*cached, run)) unknown.push_back(identifier);
        }
        ahead_.begin(
            repositoryUrl(*settings), unknown,
            [this](const std::string& identifier) { return knownVersion(identifier); },
            std::chrono::seconds(settings->values().contentSeconds));
    } catch (const std::exception& e) {
        log::debug("[CreCacher] no content is fetched ahead: ", e.what());
    }
}

SignedContent ContentLibrary::knownVersion(const std::string& identifier) {
    const std::optional<CachedContent> cached = cache_.get(identifier);
    if (cached && cached->document) return {"", "", cached->etag, cached->lastModified};
    const std::optional<SignedContent> content = store_.read(identifier);
    return content ? SignedContent{"", "", content->etag, content->lastModified} : SignedContent{};
}

void ContentLibrary::removeFile(const std::string& identifier) {
    if (!isContentIdentifier(identifier)) return;
    try {
        store_.remove(identifier);
    } catch (const std::exception& e) {
        log::error("[CreCacher] ", e.what());
    }
}

}  // namespace zelor::agent
