#include "agent/content/ContentFetch.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "agent/content/ContentDocument.h"
#include "agent/http/Deadline.h"
#include "agent/http/RepositoryUrl.h"

namespace zelor::agent {

namespace {

using Kind = ContentAnswer::Kind;

FetchedFile fetchOnce(HttpClient& client, const HttpRequest& prepared, std::size_t limit) {
    FetchedFile fetched;
    HttpRequest request = prepared;
    request.onBody = [&](std::string_view piece) {
        fetched.tooLarge = piece.size() > limit - fetched.body.size();
        if (!fetched.tooLarge) fetched.body += piece;
        return !fetched.tooLarge;
    };
    fetched.result = client.perform(request);
    return fetched;
}

bool worthAnotherAttempt(const HttpResult& result) {
    return result.outcome == HttpOutcome::transient ||
           (result.outcome == HttpOutcome::answered && statusIsTransient(result.head.status));
}

bool isOverdue(const HttpRequest& request) {
    return request.overdue && request.overdue();
}

/// Sleeps, but no longer than the request may take; false at once when a stop is requested.
bool pauseFor(std::chrono::milliseconds pause, const HttpRequest& request) {
    for (; pause.count() > 0 && !isOverdue(request); pause -= kReaction) {
        if (!sleepUnlessInterrupted(std::min(pause, kReaction))) return false;
    }
    return !stopRequested();
}

/// Everything but a good answer; `unchanged` means a good one.
ContentAnswer judge(const FetchedFile& fetched, const std::string& url, std::size_t limit) {
    const std::string shown = withoutCredentials(url);
    const HttpResult& result = fetched.result;
    if (fetched.tooLarge) {
        return {Kind::refused, {}, shown + " is larger than the " + std::to_string(limit) + " bytes allowed"};
    }
    if (result.outcome == HttpOutcome::interrupted) return {Kind::stopped, {}, shown + ": interrupted"};
    if (result.outcome == HttpOutcome::permanent) return {Kind::refused, {}, shown + ": " + result.error};
    if (result.outcome == HttpOutcome::overdue) {
        return {Kind::noAnswer, {}, shown + ": it takes longer than ContentSeconds in section Limits allows"};
    }
    if (result.outcome != HttpOutcome::answered) return {Kind::noAnswer, {}, shown + ": " + result.error};
    const long status = result.head.status;
    if (status == 200 || status == 304) return {Kind::unchanged, {}, ""};
    const std::string said = shown + ": the repository answered " + std::to_string(status);
    if (status == 404 || status == 410) return {Kind::none, {}, said + "; publish the content there"};
    return {statusIsTransient(status) ? Kind::noAnswer : Kind::refused, {}, said};
}

}  // namespace

RetryPolicy contentRetryPolicy() {
    RetryPolicy policy;
    policy.attempts = 3;
    policy.firstPause = std::chrono::milliseconds(200);
    policy.longestPause = std::chrono::seconds(5);
    return policy;
}

HttpLimits contentLimits() {
    HttpLimits limits;
    limits.stallTime = std::chrono::seconds(20);
    return limits;
}

FetchedFile fetchFile(HttpClient& client, HttpRequest request, std::size_t limit, const RetryPolicy& retry,
                      const Deadline& deadline, RepositoryTurn& turn) {
    for (int failures = 1;; ++failures) {
        request.limits = turn.bounded(contentLimits());
        FetchedFile fetched = fetchOnce(client, request, limit);
        turn.learn(fetched.result);
        if (!worthAnotherAttempt(fetched.result) || failures >= retry.attempts) return fetched;
        const auto asked = retryAfter(fetched.result.head.header("retry-after"), std::time(nullptr));
        const auto pause = deadline.atMost(pauseAfter(failures, asked, retry, randomChance()));
        if (!turn.mayGoOn(pause, asked)) return fetched;
        if (!pauseFor(pause, request)) {
            fetched.result.outcome = HttpOutcome::interrupted;
            return fetched;
        }
        if (deadline.passed() || isOverdue(request)) return fetched;
    }
}

std::string ListedContent::identity() const {
    std::string text = std::to_string(file.length);
    for (const auto& [algorithm, digest] : file.digests)
        text += ' ' + algorithm + '=' + digest;
    return text;
}

bool ListedContent::matches(const std::string& bytes) const {
    return !file.digests.empty() && trust::checkBytes(bytes, file.length, file.digests).has_value();
}

bool ContentQuestion::operator==(const ContentQuestion& other) const {
    if (listed && other.listed) return listed->identity() == other.listed->identity();
    return !listed && !other.listed && known.etag == other.known.etag &&
           known.lastModified == other.known.lastModified && known.source == other.known.source;
}

ContentExchange::ContentExchange(const Mirror& mirror, const std::string& identifier,
                                 const ContentQuestion& question)
    : source_(mirror.source), listed_(question.listed) {
    if (listed_) {
        request_.url = mirror.url + '/' + listed_->path;
        return;
    }
    const SignedContent& known = question.known;
    request_.url = mirror.url + "/content/" + urlSegment(identifier) + ".xml";
    if (!known.etag.empty()) request_.headers.push_back("If-None-Match: " + known.etag);
    if (!known.lastModified.empty()) request_.headers.push_back("If-Modified-Since: " + known.lastModified);
    conditional_ = !request_.headers.empty();
}

std::size_t ContentExchange::limit() const {
    if (listed_)
        return static_cast<std::size_t>(std::min<std::uint64_t>(listed_->file.length, kContentBytesLimit));
    return hasXml_ ? kSignatureBytesLimit : kContentBytesLimit;
}

ContentAnswer ContentExchange::takeListed(FetchedFile fetched) const {
    ContentAnswer answer = judge(fetched, request_.url, limit());
    const std::string shown = withoutCredentials(request_.url);
    const bool whole = answer.kind == Kind::unchanged && fetched.result.head.status == 200;
    if (whole && listed_->matches(fetched.body)) {
        answer.kind = Kind::fresh;
        answer.content.listedDigest = trust::digestOf("sha256", fetched.body).value_or("");
        answer.content.xml = std::move(fetched.body);
        return answer;
    }
    if (answer.kind == Kind::noAnswer || answer.kind == Kind::stopped) return answer;
    if (answer.kind == Kind::unchanged) answer.problem = shown + " is not the file that the index lists";
    if (answer.kind == Kind::none) answer.problem = shown + ": the repository does not have this listed file";
    answer.kind = Kind::notServed;
    answer.problem += "; the mirror may lag behind the index: try again later or another one";
    return answer;
}

std::optional<ContentAnswer> ContentExchange::take(FetchedFile fetched) {
    std::optional<ContentAnswer> answer;
    if (listed_) {
        answer = takeListed(std::move(fetched));
    } else {
        answer = answerTo(std::move(fetched));
    }
    if (answer) answer->content.source = source_;
    return answer;
}

std::optional<ContentAnswer> ContentExchange::answerTo(FetchedFile fetched) {
    ContentAnswer answer = judge(fetched, request_.url, limit());
    const HttpHead& head = fetched.result.head;
    if (hasXml_) {
        // Content without a signature is no removal.
        if (answer.kind == Kind::none) answer.kind = Kind::refused;
        if (answer.kind != Kind::unchanged) return answer;
        answer.kind = Kind::fresh;
        answer.content = std::move(content_);
        answer.content.signature = std::move(fetched.body);
        return answer;
    }
    if (answer.kind != Kind::unchanged) return answer;
    if (head.status == 304) {
        if (conditional_) return answer;
        return ContentAnswer{
            Kind::refused, {}, withoutCredentials(request_.url) + ": answered 304 to a plain request"};
    }
    content_ = {std::move(fetched.body), "", head.validator("etag"), head.validator("last-modified")};
    hasXml_ = true;
    request_.url += ".sig";
    request_.headers.clear();
    return std::nullopt;
}

ContentAnswer fetchContent(HttpClient& client, const Mirror& mirror, const std::string& identifier,
                           const ContentQuestion& question, const RetryPolicy& retry,
                           std::chrono::milliseconds longest, RepositoryTurn& turn) {
    const Deadline deadline(longest);
    ContentExchange exchange(mirror, identifier, question);
    for (;;) {
        HttpRequest request = exchange.request();
        request.overdue = [&] { return deadline.passed(); };
        auto answer = exchange.take(fetchFile(client, request, exchange.limit(), retry, deadline, turn));
        if (answer) return std::move(*answer);
    }
}

}  // namespace zelor::agent
