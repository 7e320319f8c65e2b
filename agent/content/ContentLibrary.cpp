#include "agent/content/ContentLibrary.h"

#include <algorithm>
#include <atomic>
#include <stdexcept>
#include <utility>

#include "agent/AgentSettings.h"
#include "agent/ContentCacheControl.h"
#include "agent/http/Deadline.h"
#include "agent/http/Mirrors.h"
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

/// What is listed was compared with the index as it came; the rest must be signed.
void requireSignature(ContentAnswer& answer) {
    if (!answer.content.listedDigest.empty()) return;
    const SignatureVerdict verdict = checkSignature(answer.content);
    if (verdict.good) return;
    answer.kind = Kind::refused;
    const std::string& mirror = answer.content.source;
    answer.problem = (mirror.empty() ? "" : mirror + ": ") + verdict.reason + "; sign and publish it again";
}

/// What the unusable answers of `mirrors` say together; those that are known to be down gave none. Only all
/// of them can say that there is no such content, and the copy kept serves only if none of them did. One
/// without a listed file shows that the copy is an older one, whether or not the others answered.
ContentAnswer combined(const std::vector<ContentAnswer>& answers, std::size_t mirrors) {
    const auto count = [&](Kind kind) {
        return static_cast<std::size_t>(std::count_if(
            answers.begin(), answers.end(), [&](const ContentAnswer& one) { return one.kind == kind; }));
    };
    ContentAnswer all{Kind::refused, {}, ""};
    if (count(Kind::none) == mirrors) all.kind = Kind::none;
    if (count(Kind::none) == 0 && count(Kind::noAnswer) != 0) all.kind = Kind::noAnswer;
    if (count(Kind::notServed) != 0) all.kind = Kind::notServed;
    for (const ContentAnswer& one : answers)
        all.problem += (all.problem.empty() ? "" : "; ") + one.problem;
    return all;
}

/// Throws std::runtime_error when a copy is neither signed nor, with an index, what it was when it was
/// listed.
void requireGood(const SignedContent& content) {
    const bool indexed = !AgentSettings::current()->values().root.empty();
    if (indexed && !content.listedDigest.empty()) {
        if (trust::digestOf("sha256", content.xml) == content.listedDigest) return;
        throw std::runtime_error("it was changed after it was listed");
    }
    const SignatureVerdict verdict = checkSignature(content);
    if (!verdict.good) throw std::runtime_error(verdict.reason);
}

ContentQuestion questionOf(SignedContent known, const Listing& listing) {
    if (listing.isListed()) return {{}, listing.file};
    return {std::move(known), {}};
}

std::string repositoryDown() {
    return Mirrors::ofRun(*AgentSettings::current())->inOrder().front().outage->reason();
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
    const Listing listing = look(identifier, stopRequested);
    Kept kept;
    if (cached && cached->document) {
        kept = {cached->document, cached->version, cached->listed};
    } else {
        kept = readKept(identifier, listing);
    }
    ContentAnswer answer = answerOf(identifier, kept, listing);
    Document document;
    switch (answer.kind) {
        case Kind::fresh:
            document = accept(identifier, answer.content, answer.problem);
            kept.listed = document && listing.isListed() ? listing.file.identity() : "";
            kept.version = std::move(answer.content);
            break;
        case Kind::unchanged:
            document = kept.document;
            break;
        case Kind::noAnswer:
        case Kind::notServed:
            document = usableAnyway(identifier, kept, listing, answer);
            if (!document) return nullptr;
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
    cache_.put(identifier, {document, kept.version.versionFor(kept.version.source), run, Clock::now(),
                            std::move(answer.problem), kept.listed});
    return document;
}

/// The copy kept, in place of one that cannot be had; null when it may not serve.
ContentLibrary::Document ContentLibrary::usableAnyway(const std::string& identifier, const Kept& kept,
                                                      const Listing& listing, const ContentAnswer& answer) {
    // With an index, the copy is known to be an older one, or not known to be the newest.
    const bool indexed = listing.kind != Listing::Kind::none;
    const auto settings = AgentSettings::current();
    if (kept.document && !(indexed && settings->values().freshness == Freshness::require)) {
        if (listing.isListed() && settings->values().freshness == Freshness::warn) {
            log::error("[CreCacher] an older copy is used of ", identifier, ": ", answer.problem);
            index_.warn(*settings, "an older copy is used of " + identifier + ": " + answer.problem);
        } else {
            log::info("[CreCacher] using the copy kept of ", identifier, ": ", answer.problem);
        }
        return kept.document;
    }
    reportUnusable(
        identifier,
        answer.problem + (answer.kind == Kind::noAnswer ? "; check that the repository can be reached" : ""));
    return nullptr;
}

Listing ContentLibrary::look(const std::string& identifier, const StopSource& stop) {
    try {
        return index_.find(*AgentSettings::current(), "content/" + identifier + ".xml", stop);
    } catch (const std::exception&) {
        return {};  // without a repository: whoever asks it says so
    }
}

ContentLibrary::Kept ContentLibrary::readKept(const std::string& identifier, const Listing& listing) const {
    std::optional<SignedContent> content = store_.read(identifier);
    if (!content) return {};
    try {
        const bool listed = listing.isListed() && listing.file.matches(content->xml);
        if (!listed && content->signature.empty() && content->listedDigest.empty()) return {};
        if (!listed) requireGood(*content);
        auto document =
            std::make_shared<const ContentDocument>(ContentDocument::parse(content->xml, identifier));
        return {std::move(document), std::move(*content), listed ? listing.file.identity() : ""};
    } catch (const std::exception& e) {
        log::info("[CreCacher] fetching ", identifier, " anew, the copy kept is not good: ", e.what());
        return {};
    }
}

ContentAnswer ContentLibrary::answerOf(const std::string& identifier, const Kept& kept,
                                       const Listing& listing) {
    const bool required = AgentSettings::current()->values().freshness == Freshness::require;
    switch (listing.kind) {
        case Listing::Kind::stopped:
            return {Kind::stopped, {}, ""};
        case Listing::Kind::unknown:
            if (!kept.document && listing.silent) CallReport::addReason(repositoryDown());
            return {listing.silent ? Kind::noAnswer : Kind::notServed, {}, listing.problem};
        default:
            break;
    }
    if (required && !listing.problem.empty())
        return {Kind::refused, {}, listing.problem + "; [Repository] Freshness is require"};
    if (listing.kind == Listing::Kind::unlisted) {
        const std::string problem = "content/" + identifier + ".xml is not in the repository's list";
        // What an index of unknown age does not list is not deleted.
        return {listing.current ? Kind::none : Kind::refused, {}, problem + "; publish the content"};
    }
    if (listing.isListed() && kept.document && kept.listed == listing.file.identity())
        return {Kind::unchanged, {}, ""};
    return ask(identifier, kept, listing);
}

ContentAnswer ContentLibrary::ask(const std::string& identifier, const Kept& kept, const Listing& listing) {
    try {
        return askEach(identifier, kept, listing);
    } catch (const std::exception& e) {
        return {Kind::noAnswer, {}, e.what()};
    }
}

ContentAnswer ContentLibrary::askEach(const std::string& identifier, const Kept& kept,
                                      const Listing& listing) {
    const auto settings = AgentSettings::current();
    const auto mirrors = Mirrors::ofRun(*settings);
    const SharedTime time(std::chrono::seconds(settings->values().contentSeconds));
    std::vector<Mirror> toAsk = mirrors->toAsk(identifier);
    std::optional<ContentAnswer> came = ahead_.take(identifier, questionOf(kept.version, listing));
    if (came) {
        const auto asked = std::find_if(toAsk.begin(), toAsk.end(), [&](const Mirror& mirror) {
            return mirror.source == came->content.source;
        });
        if (asked != toAsk.end()) toAsk.erase(asked);
        toAsk.insert(toAsk.begin(), Mirror{"", came->content.source, nullptr});
    }
    std::vector<ContentAnswer> bad;
    std::string outage;
    for (std::size_t i = 0; i < toAsk.size(); ++i) {
        const bool othersLeft = i + 1 < toAsk.size();
        const ContentQuestion question = questionOf(kept.version.versionFor(toAsk[i].source), listing);
        RepositoryTurn turn(toAsk[i].outage, identifier, othersLeft);
        ContentAnswer answer =
            came && i == 0 ? std::move(*came)
                           : askMirror(toAsk[i], identifier, question, time.left(i, toAsk.size()), turn);
        if (answer.kind == Kind::noAnswer && turn.isDown()) outage = turn.reason(answer.problem);
        if (answer.kind == Kind::fresh) requireSignature(answer);
        if (answer.kind == Kind::fresh || answer.kind == Kind::unchanged) mirrors->served(toAsk[i]);
        if (answer.kind == Kind::fresh || answer.kind == Kind::unchanged || answer.kind == Kind::stopped)
            return answer;
        if (othersLeft)
            log::error("[CreCacher] ", identifier, ": ", answer.problem, "; asking ",
                       withoutCredentials(toAsk[i + 1].url));
        bad.push_back(std::move(answer));
    }
    ContentAnswer answer = combined(bad, mirrors->inOrder().size());
    if (answer.kind == Kind::noAnswer && !kept.document && !outage.empty()) CallReport::addReason(outage);
    return answer;
}

ContentAnswer ContentLibrary::askMirror(const Mirror& mirror, const std::string& identifier,
                                        const ContentQuestion& question, std::chrono::milliseconds longest,
                                        RepositoryTurn& turn) {
    ContentAnswer answer{Kind::noAnswer, {}, turn.reason()};
    if (turn.mayAsk()) {
        const auto client = clients_.lend();
        answer = fetchContent(*client, mirror, identifier, question, retry_, longest, turn);
    }
    if (answer.kind == Kind::noAnswer) turn.gaveUp();
    return answer;
}

ContentLibrary::Document ContentLibrary::accept(const std::string& identifier, const SignedContent& content,
                                                std::string& problem) {
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
            Mirrors::ofRun(*settings)->inOrder(), unknown,
            [this](const std::string& identifier, const std::string& source, const StopSource& stopped) {
                return question(identifier, source, stopped);
            },
            std::chrono::seconds(settings->values().contentSeconds));
    } catch (const std::exception& e) {
        log::debug("[CreCacher] no content is fetched ahead: ", e.what());
    }
}

/// What to ask ahead; nothing where `get` will ask nothing, or has to say why there is no content.
std::optional<ContentQuestion> ContentLibrary::question(const std::string& identifier,
                                                        const std::string& source,
                                                        const StopSource& stopped) {
    const Listing listing = look(identifier, stopped);
    const bool required = AgentSettings::current()->values().freshness == Freshness::require;
    if (required && !listing.problem.empty()) return std::nullopt;
    if (listing.kind == Listing::Kind::none) return questionOf(knownVersion(identifier, source), listing);
    if (!listing.isListed()) return std::nullopt;
    const std::optional<CachedContent> cached = cache_.get(identifier);
    if (cached && cached->document && cached->listed == listing.file.identity()) return std::nullopt;
    const std::optional<SignedContent> kept = store_.read(identifier);
    if (kept && listing.file.matches(kept->xml)) return std::nullopt;
    return questionOf({}, listing);
}

SignedContent ContentLibrary::knownVersion(const std::string& identifier, const std::string& source) {
    const std::optional<CachedContent> cached = cache_.get(identifier);
    if (cached && cached->document) return cached->version.versionFor(source);
    const std::optional<SignedContent> content = store_.read(identifier);
    return content ? content->versionFor(source) : SignedContent{};
}

void ContentLibrary::applied(const std::string& identifier) {
    if (AgentSettings::current()->values().root.empty()) return removeFile(identifier);
    if (!isContentIdentifier(identifier)) return;
    try {
        store_.removeProof(identifier);
    } catch (const std::exception& e) {
        log::error("[CreCacher] ", e.what());
    }
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
