#include "authoring/serve/StaticServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <system_error>

#include "authoring/serve/HttpConditions.h"
#include "base/Deleter.h"
#include "base/Files.h"
#include "base/Mutex.h"
#include "base/SystemCalls.h"

namespace zelor::authoring {

namespace {

constexpr unsigned int kConnectionLimit = 512;
constexpr unsigned int kConnectionsOfOneAddress = 64;
constexpr unsigned int kIdleSeconds = 120;
constexpr std::size_t kPieceBytes = 64U << 10U;

using Response = std::unique_ptr<MHD_Response, base::Deleter<MHD_destroy_response>>;

/// Wakes every answer that is delayed on purpose when the server stops.
class Stopping {
  public:
    void stop() {
        const base::MutexLock lock(mutex_);
        stopping_ = true;
        changed_.notifyAll();
    }
    void wait() {
        const base::MutexLock lock(mutex_);
        while (!stopping_)
            changed_.wait(mutex_);
    }
    void waitUntil(std::chrono::steady_clock::time_point time) {
        const base::MutexLock lock(mutex_);
        while (!stopping_ && changed_.waitUntil(mutex_, time)) {
        }
    }

  private:
    base::Mutex mutex_;
    base::Condition changed_;
    bool stopping_ ZELOR_GUARDED_BY(mutex_) = false;
};

/// A body that is sent damaged or slowly on purpose.
struct FaultyBody {
    base::UniqueFd file;
    Answer answer;
    ServerFault fault;
    Stopping* stopping = nullptr;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();

    ssize_t read(std::uint64_t position, char* buffer, std::size_t room) {
        if (fault.stallAfter && position >= *fault.stallAfter) stopping->wait();
        if (fault.dropAfter && position >= *fault.dropAfter) return MHD_CONTENT_READER_END_WITH_ERROR;
        pace(position);
        const std::uint64_t wanted = std::min<std::uint64_t>(room, bytesBeforeFault(position));
        const ssize_t got = ::pread(file.get(), buffer, static_cast<std::size_t>(wanted),
                                    static_cast<off_t>(answer.offset + position));
        if (got < 0) return MHD_CONTENT_READER_END_WITH_ERROR;
        if (got == 0) return MHD_CONTENT_READER_END_OF_STREAM;
        return got;
    }

  private:
    std::uint64_t bytesBeforeFault(std::uint64_t position) const {
        std::uint64_t end = answer.length;
        if (fault.stallAfter && position < *fault.stallAfter) end = std::min(end, *fault.stallAfter);
        if (fault.dropAfter) end = std::min(end, *fault.dropAfter);
        return position < end ? end - position : 0;
    }

    void pace(std::uint64_t position) const {
        if (fault.bytesPerSecond == 0) return;
        const double seconds = static_cast<double>(position) / static_cast<double>(fault.bytesPerSecond);
        stopping->waitUntil(begin + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                        std::chrono::duration<double>(seconds)));
    }
};

ssize_t readBody(void* closure, std::uint64_t position, char* buffer, std::size_t room) {
    return static_cast<FaultyBody*>(closure)->read(position, buffer, room);
}

void freeBody(void* closure) {
    const std::unique_ptr<FaultyBody> body(static_cast<FaultyBody*>(closure));
}

bool changesBody(const ServerFault& fault) {
    return fault.dropAfter || fault.stallAfter || fault.bytesPerSecond != 0 || fault.announcedLength ||
           fault.withoutLength;
}

std::string header(MHD_Connection* connection, const char* name) {
    const char* value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

void addHeader(const Response& response, const char* name, const std::string& value) {
    MHD_add_response_header(response.get(), name, value.c_str());
}

Response textResponse(const std::string& text) {
    // MHD_RESPMEM_MUST_COPY leaves the text untouched; the parameter is not const for its other modes.
    Response response(
        MHD_create_response_from_buffer(text.size(), const_cast<char*>(text.data()), MHD_RESPMEM_MUST_COPY));
    if (!text.empty()) addHeader(response, "Content-Type", "text/plain");
    return response;
}

FileVersion versionOf(const struct stat& status) {
    const timespec time = base::modificationTime(status);
    std::array<char, 80> etag{};
    std::snprintf(etag.data(), etag.size(), "\"%llx.%lx-%llx-%llx\"",
                  static_cast<unsigned long long>(time.tv_sec), static_cast<unsigned long>(time.tv_nsec),
                  static_cast<unsigned long long>(status.st_size),
                  static_cast<unsigned long long>(status.st_ino));
    return {static_cast<std::uint64_t>(status.st_size), time.tv_sec, etag.data()};
}

/// Leaves the arguments of a request encoded: a decoded zero byte would truncate the path.
std::size_t keepEncoded(void* /*closure*/, MHD_Connection* /*connection*/, char* text) {
    return std::char_traits<char>::length(text);
}

}  // namespace

class StaticServer::Running {
  public:
    explicit Running(StaticServerOptions options) : options_(std::move(options)) {
        directory_ = base::UniqueFd(::open(options_.directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (directory_.get() < 0) {
            throw std::runtime_error("cannot serve " + options_.directory + ": " +
                                     std::generic_category().message(errno));
        }
        start();
    }
    ~Running() {
        stopping_.stop();
        daemon_.reset();
    }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

    std::uint16_t port() const { return MHD_get_daemon_info(daemon_.get(), MHD_DAEMON_INFO_BIND_PORT)->port; }
    const std::string& address() const { return options_.address; }

  private:
    void start() {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(options_.port);
        if (inet_pton(AF_INET, options_.address.c_str(), &address.sin_addr) != 1) {
            throw std::runtime_error("\"" + options_.address + "\" is not a numeric IPv4 address");
        }
        constexpr unsigned int kFlags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION;
        daemon_.reset(MHD_start_daemon(kFlags, options_.port, nullptr, nullptr, &Running::handle, this,
                                       MHD_OPTION_SOCK_ADDR, &address, MHD_OPTION_CONNECTION_LIMIT,
                                       kConnectionLimit, MHD_OPTION_PER_IP_CONNECTION_LIMIT,
                                       kConnectionsOfOneAddress, MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
                                       MHD_OPTION_UNESCAPE_CALLBACK, &keepEncoded, nullptr, MHD_OPTION_END));
        if (!daemon_) {
            throw std::runtime_error("cannot listen on " + options_.address + " port " +
                                     std::to_string(options_.port) + ": " +
                                     std::generic_category().message(errno));
        }
    }

    static MHD_Result handle(void* self, MHD_Connection* connection, const char* url, const char* method,
                             const char* /*version*/, const char* /*data*/, std::size_t* dataSize,
                             void** state) {
        // The first call for a request has only its headers. A body is dropped, since no method served has
        // one.
        static char seen = 0;
        if (*state == nullptr) {
            *state = &seen;
            return MHD_YES;
        }
        if (*dataSize != 0) {
            *dataSize = 0;
            return MHD_YES;
        }
        try {
            return static_cast<Running*>(self)->answer(connection, url, method);
        } catch (const std::exception&) {
            return MHD_NO;  // out of memory: the connection is closed
        }
    }

    MHD_Result answer(MHD_Connection* connection, const char* url, const char* method) {
        const ServerRequest request{method,
                                    url,
                                    header(connection, "Range"),
                                    header(connection, "If-Range"),
                                    header(connection, "If-None-Match"),
                                    header(connection, "If-Modified-Since")};
        ServerFault fault = options_.fault ? options_.fault(request) : ServerFault();
        int status = 0;
        Response response;
        if (fault.status != 0) {
            status = fault.status;
            response = textResponse("");
        } else {
            response = fileResponse(request, fault, status);
        }
        for (const auto& [name, value] : fault.headers)
            addHeader(response, name.c_str(), value);
        if (options_.answered) options_.answered(request, status);
        return MHD_queue_response(connection, static_cast<unsigned int>(status), response.get());
    }

    Response fileResponse(const ServerRequest& request, ServerFault& fault, int& status) {
        if (request.method != "GET" && request.method != "HEAD") {
            status = MHD_HTTP_METHOD_NOT_ALLOWED;
            Response response = textResponse("only GET and HEAD\n");
            addHeader(response, "Allow", "GET, HEAD");
            return response;
        }
        struct stat found {};
        base::UniqueFd file = openBelow(request.path, found);
        if (file.get() < 0) {
            status = MHD_HTTP_NOT_FOUND;
            return textResponse("not found\n");
        }
        FileVersion version = versionOf(found);
        if (!fault.etag.empty()) version.etag = fault.etag;
        const bool wholeOnly = request.method == "HEAD";
        const Answer chosen = selectAnswer(
            {wholeOnly ? "" : request.range, request.ifRange, request.ifNoneMatch, request.ifModifiedSince},
            version);
        Response response = body(std::move(file), chosen, fault, status);
        const std::string size = std::to_string(version.size);
        if (chosen.selection == Selection::unsatisfiable)
            addHeader(response, "Content-Range", "bytes */" + size);
        if (chosen.selection == Selection::part) {
            const std::string right = "bytes " + std::to_string(chosen.offset) + "-" +
                                      std::to_string(chosen.offset + chosen.length - 1) + "/" + size;
            addHeader(response, "Content-Range", fault.contentRange.empty() ? right : fault.contentRange);
        }
        addHeader(response, "ETag", version.etag);
        addHeader(response, "Last-Modified", httpDate(version.modified));
        addHeader(response, "Accept-Ranges", "bytes");
        if (const std::string control = cacheControl(request.path); !control.empty())
            addHeader(response, "Cache-Control", control);
        return response;
    }

    Response body(base::UniqueFd file, const Answer& chosen, const ServerFault& fault, int& status) {
        switch (chosen.selection) {
            case Selection::notModified:
                status = MHD_HTTP_NOT_MODIFIED;
                return textResponse("");
            case Selection::unsatisfiable:
                status = MHD_HTTP_RANGE_NOT_SATISFIABLE;
                return textResponse("");
            case Selection::part:
                status = MHD_HTTP_PARTIAL_CONTENT;
                break;
            case Selection::whole:
                status = MHD_HTTP_OK;
                break;
        }
        Response response = changesBody(fault) ? faultyBody(std::move(file), chosen, fault)
                                               : Response(MHD_create_response_from_fd_at_offset64(
                                                     chosen.length, file.release(), chosen.offset));
        addHeader(response, "Content-Type", "application/octet-stream");
        return response;
    }

    Response faultyBody(base::UniqueFd file, const Answer& chosen, const ServerFault& fault) {
        auto state = std::make_unique<FaultyBody>();
        state->file = std::move(file);
        state->answer = chosen;
        state->fault = fault;
        state->stopping = &stopping_;
        const std::uint64_t length =
            fault.withoutLength ? MHD_SIZE_UNKNOWN : fault.announcedLength.value_or(chosen.length);
        return Response(
            MHD_create_response_from_callback(length, kPieceBytes, &readBody, state.release(), &freeBody));
    }

    /// Opens one component at a time, so that no symbolic link leads outside.
    base::UniqueFd openBelow(const std::string& path, struct stat& found) const {
        const auto names = servedPathComponents(path);
        if (!names || names->empty()) return base::UniqueFd();
        base::UniqueFd directory;
        int at = directory_.get();
        for (std::size_t i = 0; i + 1 < names->size(); ++i) {
            base::UniqueFd next(
                ::openat(at, (*names)[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
            if (next.get() < 0) return next;
            directory = std::move(next);
            at = directory.get();
        }
        base::UniqueFd file(
            ::openat(at, names->back().c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (file.get() < 0 || ::fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode))
            return base::UniqueFd();
        return file;
    }

    StaticServerOptions options_;
    base::UniqueFd directory_;
    Stopping stopping_;
    std::unique_ptr<MHD_Daemon, base::Deleter<MHD_stop_daemon>> daemon_;
};

StaticServer::StaticServer(StaticServerOptions options)
    : running_(std::make_unique<Running>(std::move(options))) {}

StaticServer::~StaticServer() = default;

std::uint16_t StaticServer::port() const {
    return running_->port();
}

std::string StaticServer::url() const {
    return "http://" + running_->address() + ":" + std::to_string(port());
}

}  // namespace zelor::authoring
