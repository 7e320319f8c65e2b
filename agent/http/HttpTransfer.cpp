#include "agent/http/HttpTransfer.h"

#include <algorithm>
#include <boost/algorithm/string/replace.hpp>
#include <boost/thread/thread.hpp>
#include <exception>
#include <optional>
#include <stdexcept>
#include <thread>

#include "agent/AgentSettings.h"
#include "agent/http/CurlParts.h"
#include "agent/http/SystemProxy.h"
#include "base/Strings.h"
#include "remediation/Version.h"

namespace zelor::agent {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::uint64_t kLeastBytesPerSecond = 1;
constexpr std::size_t kHeaderLimit = 200;
constexpr std::size_t kHeadBytesLimit = 128U << 10U;
constexpr std::uint64_t kDiscardLimit = 64U << 10U;
constexpr long kLeastBuffer = 1024;
constexpr long kLargestBuffer = 512L << 10;
constexpr std::uint64_t kReadsPerSecond = 50;
constexpr int kLeastWindow = 16 << 10;
constexpr std::uint64_t kWindowsPerSecond = 8;

bool isRedirect(long status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// Keeps what the kernel takes from the network ahead of us small beside the rate.
int limitWindow(void* closure, curl_socket_t socket, curlsocktype /*purpose*/) {
    const int bytes = *static_cast<const int*>(closure);
    (void)setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
    return CURL_SOCKOPT_OK;
}

/// One request and its answer, without redirects.
class Transfer {
  public:
    Transfer(HttpHandles& handles, const HttpRequest& request, const std::string& url, bool amongOthers)
        : request_(request),
          headers_(headerList(request.headers)),
          pacer_(request.bytesPerSecond),
          multi_(handles.multi.get()) {
        if (!owned_) throw std::bad_alloc();
        setUp(url);
        if (amongOthers) setOption(easy_, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_2TLS);
        // The first connection shows whether the server takes all requests on it; plain http never does.
        if (amongOthers && base::hasBeginningInAnyCase(url, "https:")) setOption(easy_, CURLOPT_PIPEWAIT, 1L);
        if (curl_multi_add_handle(multi_, easy_) != CURLM_OK)
            throw std::runtime_error("libcurl is out of memory");
    }
    ~Transfer() { curl_multi_remove_handle(multi_, easy_); }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    HttpResult run(std::string& redirect) {
        HttpResult result;
        while (!step(result)) {
        }
        redirect = complete(result);
        return result;
    }

    /// True when the transfer is over for another reason than libcurl's, after each round of libcurl.
    bool isOver(HttpResult& result) {
        if (headBytes_ > kHeadBytesLimit) {
            return end(result, HttpOutcome::permanent, "the answer's headers are larger than 128 KiB");
        }
        if (!otherCoding_.empty()) {
            return end(
                result, HttpOutcome::permanent,
                "the answer has the transfer coding \"" + otherCoding_ + "\", and only chunked is taken");
        }
        if (stopped_) return end(result, HttpOutcome::stopped, "stopped");
        return false;
    }

    /// The same for one that libcurl continues.
    bool isTooSlow(HttpResult& result) {
        if (!headEnded_ && Clock::now() > answerDue_) {
            return end(result, HttpOutcome::transient, "no answer came in time");
        }
        if (Clock::now() - progressed_ > request_.limits.stallTime) {
            return end(result, HttpOutcome::transient, "the transfer stalled: nothing came for too long");
        }
        return request_.overdue && request_.overdue() && end(result, HttpOutcome::overdue, "its time was up");
    }

    /// libcurl has ended it with that code.
    bool finish(HttpResult& result, CURLcode code) {
        if (discarding_ && code == CURLE_WRITE_ERROR) code = CURLE_OK;
        std::string error = code == CURLE_OK         ? ""
                            : error_.front() == '\0' ? curl_easy_strerror(code)
                                                     : error_.data();
        // libcurl quotes a proxy's address that it cannot use.
        if (!proxy_.empty()) boost::replace_all(error, proxy_, withoutCredentials(proxy_));
        return end(result, outcomeOf(code), std::move(error));
    }

    /// Adds the head to the result of a transfer that is over. The target of a redirect, or "".
    std::string complete(HttpResult& result) {
        std::string redirect;
        if (thrown_) std::rethrow_exception(thrown_);
        if (result.outcome == HttpOutcome::answered && isRedirect(head_.status)) {
            const char* target = nullptr;
            curl_easy_getinfo(easy_, CURLINFO_REDIRECT_URL, &target);
            if (target != nullptr) redirect = target;
        }
        result.head = std::move(head_);
        return redirect;
    }

    bool isOf(const CURL* easy) const { return easy == easy_; }

  private:
    void setUp(const std::string& url) {
        setOption(easy_, CURLOPT_URL, url.c_str());
        setOption(easy_, CURLOPT_NOSIGNAL, 1L);
#if LIBCURL_VERSION_NUM >= 0x075500
        setOption(easy_, CURLOPT_PROTOCOLS_STR, "http,https");
#else
        setOption(easy_, CURLOPT_PROTOCOLS, CURLPROTO_HTTP | CURLPROTO_HTTPS);
#endif
        setOption(easy_, CURLOPT_HTTP_VERSION, CURL_HTTP_VERSION_1_1);
        setOption(easy_, CURLOPT_SSL_VERIFYPEER, 1L);
        setOption(easy_, CURLOPT_SSL_VERIFYHOST, 2L);
        setOption(easy_, CURLOPT_SSLVERSION, CURL_SSLVERSION_TLSv1_2);
        const auto settings = AgentSettings::currentUnreported();
        proxy_ = settings->values().proxy;
        if (proxy_ == kSystemProxy) proxy_ = proxyFor(systemProxies(), url);
        setUpNetwork(easy_, settings->values(), proxy_);
        setOption(easy_, CURLOPT_USERAGENT, "zelor-agent/" ZELOR_VERSION_STRING);
        setOption(easy_, CURLOPT_CONNECTTIMEOUT_MS,
                  static_cast<long>(request_.limits.connectTimeout.count()));
        setOption(easy_, CURLOPT_ERRORBUFFER, error_.data());
        setOption(easy_, CURLOPT_HTTPHEADER, headers_.get());
        setOption(easy_, CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
        setOption(easy_, CURLOPT_HEADERDATA, this);
        setOption(easy_, CURLOPT_WRITEFUNCTION, &Transfer::onBody);
        setOption(easy_, CURLOPT_WRITEDATA, this);
#if LIBCURL_VERSION_NUM >= 0x075700
        setOption(easy_, CURLOPT_QUICK_EXIT, 1L);  // an interruption must not wait for a slow name server
#endif
        setUpRate();
    }

    void setUpRate() {
        const std::uint64_t rate = request_.bytesPerSecond;
        if (rate == 0) {
            setOption(easy_, CURLOPT_BUFFERSIZE, kLargestBuffer);
            return;
        }
        const std::uint64_t buffer =
            std::clamp<std::uint64_t>(rate / kReadsPerSecond, kLeastBuffer, kLargestBuffer);
        setOption(easy_, CURLOPT_BUFFERSIZE, static_cast<long>(buffer));
        window_ = static_cast<int>(
            std::clamp<std::uint64_t>(rate / kWindowsPerSecond, kLeastWindow, 4 * kLargestBuffer));
        setOption(easy_, CURLOPT_SOCKOPTFUNCTION, &limitWindow);
        setOption(easy_, CURLOPT_SOCKOPTDATA, &window_);
        // The window is set when the connection is made, and would be wrong for any other transfer.
        setOption(easy_, CURLOPT_FRESH_CONNECT, 1L);
        setOption(easy_, CURLOPT_FORBID_REUSE, 1L);
    }

    /// True when the transfer is over.
    bool step(HttpResult& result) {
        if (stopRequested()) {
            return end(result, HttpOutcome::interrupted, "interrupted");
        }
        if (request_.overdue && request_.overdue()) {
            return end(result, HttpOutcome::overdue, "its time was up");
        }
        const auto now = Clock::now();
        if (pacer_.due() > now) {
            std::this_thread::sleep_for(std::min<Clock::duration>(pacer_.due() - now, kReaction));
            progressed_ = Clock::now();
            answerDue_ += progressed_ - now;  // our own waiting is not the server's
            return false;
        }
        if (paused_) {
            paused_ = false;
            if (curl_easy_pause(easy_, CURLPAUSE_CONT) != CURLE_OK && !stopped_) {
                return end(result, HttpOutcome::permanent, "libcurl failed");
            }
        }
        int running = 0;
        if (curl_multi_perform(multi_, &running) != CURLM_OK) {
            return end(result, HttpOutcome::permanent, "libcurl failed");
        }
        if (isOver(result)) return true;
        if (running == 0) return finish(result, endOfTheOnlyOne());
        if (isTooSlow(result)) return true;
        if (pacer_.due() <= Clock::now()) {
            curl_multi_poll(multi_, nullptr, 0, static_cast<int>(kReaction.count()), nullptr);
        }
        return false;
    }

    static bool end(HttpResult& result, HttpOutcome outcome, std::string error) {
        result.outcome = outcome;
        result.error = std::move(error);
        return true;
    }

    CURLcode endOfTheOnlyOne() {
        int left = 0;
        CURLcode code = CURLE_RECV_ERROR;
        while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
            if (message->msg == CURLMSG_DONE) code = message->data.result;
        }
        return code;
    }

    template <class Work>
    std::size_t guarded(std::size_t size, const Work& work) {
        try {
            if (work()) return size;
        } catch (...) {
            thrown_ = std::current_exception();
        }
        stopped_ = true;
        return 0;
    }

    static std::size_t onHeader(char* data, std::size_t one, std::size_t count, void* self) {
        auto* transfer = static_cast<Transfer*>(self);
        const std::string_view line(data, one * count);
        return transfer->guarded(line.size(), [&] { return transfer->takeHeader(line); });
    }

    static std::size_t onBody(char* data, std::size_t one, std::size_t count, void* self) {
        auto* transfer = static_cast<Transfer*>(self);
        const std::string_view piece(data, one * count);
        // One call of libcurl may read many buffers; each of them is paced.
        if (transfer->pacer_.due() > Clock::now()) {
            transfer->paused_ = true;
            return CURL_WRITEFUNC_PAUSE;
        }
        transfer->countBytes(piece.size());
        if (transfer->discarding_) return transfer->discard(piece.size());
        return transfer->guarded(
            piece.size(), [&] { return !transfer->request_.onBody || transfer->request_.onBody(piece); });
    }

    bool takeHeader(std::string_view line) {
        countBytes(line.size());
        headBytes_ += line.size();
        if (headBytes_ > kHeadBytesLimit) return false;  // a server may send headers for ever
        if (headEnded_) return true;                     // a trailer
        if (line.substr(0, 5) == "HTTP/") {
            head_ = {};
            otherCoding_.clear();
            return true;
        }
        const std::string_view text = base::trimmedView(line);
        if (text.empty()) return endHead();
        const auto colon = text.find(':');
        if (colon == std::string_view::npos) return true;
        std::string name = base::lowerCased(std::string(base::trimmedView(text.substr(0, colon))));
        const std::string value(base::trimmedView(text.substr(colon + 1)));
        // Codings were never asked for, and layers of them make any number of bytes out of a few.
        if (name == "transfer-encoding" && base::lowerCased(value) != "chunked") otherCoding_ = value;
        if (head_.headers.size() < kHeaderLimit) head_.headers.emplace_back(std::move(name), value);
        return true;
    }

    bool endHead() {
        curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &head_.status);
        if (head_.status < 200) {
            head_ = {};  // no answer yet
            return true;
        }
        headEnded_ = true;
        if (!otherCoding_.empty()) return false;
        discarding_ = head_.status >= 300;
        return isRedirect(head_.status) || !request_.onHead || request_.onHead(head_);
    }

    /// Reads a short error page to its end, so that the connection can be reused.
    std::size_t discard(std::size_t size) {
        discarded_ += size;
        return discarded_ > kDiscardLimit ? 0 : size;
    }

    void countBytes(std::size_t size) {
        const auto now = Clock::now();
        pacer_.took(size, now);
        recent_ += size;
        const auto seconds =
            std::chrono::duration_cast<std::chrono::seconds>(request_.limits.stallTime).count();
        if (recent_ < kLeastBytesPerSecond * static_cast<std::uint64_t>(seconds)) return;
        recent_ = 0;
        progressed_ = now;
    }

    const HttpRequest& request_;
    HeaderList headers_;
    RatePacer pacer_;
    std::vector<char> error_ = std::vector<char>(CURL_ERROR_SIZE);
    int window_ = 0;
    std::string proxy_;
    CURLM* multi_;
    // Not reused: libcurl before 8.0 follows a pointer into the handle's previous answer when the next one
    // begins with a folded header.
    std::unique_ptr<CURL, base::Deleter<curl_easy_cleanup>> owned_{curl_easy_init()};
    CURL* easy_ = owned_.get();
    HttpHead head_;
    std::size_t headBytes_ = 0;
    bool headEnded_ = false;
    std::string otherCoding_;
    bool discarding_ = false;
    bool paused_ = false;
    bool stopped_ = false;
    std::uint64_t discarded_ = 0;
    std::uint64_t recent_ = 0;
    Clock::time_point progressed_ = Clock::now();
    Clock::time_point answerDue_ = progressed_ + request_.limits.firstAnswer;
    std::exception_ptr thrown_;
};

}  // namespace

HttpResult transferOnce(HttpHandles& handles, const HttpRequest& request, const std::string& url,
                        std::string& redirect) {
    return Transfer(handles, request, url, false).run(redirect);
}

struct ParallelTransfers::Running {
    HttpRequest request;
    Done done;
    Transfer transfer;
    std::optional<CURLcode> ended{};

    Running(HttpHandles& handles, HttpRequest asked, Done then)
        : request(std::move(asked)), done(std::move(then)), transfer(handles, request, request.url, true) {}

    /// True when it is over, with its result.
    bool isOver(HttpResult& result) {
        if (transfer.isOver(result)) return true;
        return ended ? transfer.finish(result, *ended) : transfer.isTooSlow(result);
    }
};

ParallelTransfers::ParallelTransfers(HttpClient& client, std::size_t most) : handles_(*client.handles_) {
    CURLM* multi = handles_.multi.get();
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, static_cast<long>(most));
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, static_cast<long>(most));
}

ParallelTransfers::~ParallelTransfers() = default;

void ParallelTransfers::start(HttpRequest request, Done done) {
    running_.push_back(std::make_unique<Running>(handles_, std::move(request), std::move(done)));
}

void ParallelTransfers::work() {
    CURLM* multi = handles_.multi.get();
    int left = 0;
    if (curl_multi_perform(multi, &left) != CURLM_OK) throw std::runtime_error("libcurl failed");
    while (const CURLMsg* message = curl_multi_info_read(multi, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        for (const auto& one : running_)
            if (one->transfer.isOf(message->easy_handle)) one->ended = message->data.result;
    }
    std::vector<std::unique_ptr<Running>> over;
    std::vector<HttpResult> results;
    for (auto& one : running_) {
        HttpResult result;
        if (!one->isOver(result)) continue;
        (void)one->transfer.complete(result);
        results.push_back(std::move(result));
        over.push_back(std::move(one));
    }
    running_.erase(std::remove(running_.begin(), running_.end(), nullptr), running_.end());
    for (std::size_t i = 0; i < over.size(); ++i)
        over[i]->done(std::move(results[i]));
    if (over.empty() && !running_.empty())
        curl_multi_poll(multi, nullptr, 0, static_cast<int>(kReaction.count()), nullptr);
}

}  // namespace zelor::agent
