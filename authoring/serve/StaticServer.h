#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zelor::authoring {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// One request as it arrived; a header that was not sent is "".
struct ServerRequest {
    std::string method;
    std::string path;  ///< as sent: percent-encoded, without the query
    std::string range;
    std::string ifRange;
    std::string ifNoneMatch;
    std::string ifModifiedSince;
};

/// How to answer a request otherwise than the file itself would have it. The default changes nothing.
struct ServerFault {
    int status = 0;                           ///< answer this status, with `headers`, instead of the file
    HttpHeaders headers;                      ///< added to the answer
    std::optional<std::uint64_t> dropAfter;   ///< cut the connection after so many body bytes
    std::optional<std::uint64_t> stallAfter;  ///< send no more after so many, until the server stops
    std::uint64_t bytesPerSecond = 0;         ///< send no faster than this; 0: as fast as it goes
    std::optional<std::uint64_t> announcedLength;  ///< Content-Length, whatever the file holds
    bool withoutLength = false;                    ///< chunked, no Content-Length
    std::string etag;                              ///< in place of the file's own
    std::string contentRange;                      ///< in place of the right one, on a partial answer
};

struct StaticServerOptions {
    std::string directory;              ///< served; nothing outside it ever is
    std::string address = "127.0.0.1";  ///< a numeric IPv4 address
    std::uint16_t port = 0;             ///< 0: any free one
    /// Asked once per request, on the connection's thread; may block.
    std::function<ServerFault(const ServerRequest&)> fault;
    /// Told of every answer before its first byte leaves, on the connection's thread.
    std::function<void(const ServerRequest&, int status)> answered;
};

/// A web server for the files of one directory: GET and HEAD, single ranges, ETag and Last-Modified with
/// their conditions, persistent connections. It follows no symbolic link and serves neither directories nor
/// names that begin with a dot. At most 512 connections are served at a time, at most 64 of one address. It
/// runs on threads of its own from construction to destruction.
class StaticServer {
  public:
    /// Throws std::runtime_error that names the directory or address when it cannot be served.
    explicit StaticServer(StaticServerOptions options);
    ~StaticServer();
    StaticServer(const StaticServer&) = delete;
    StaticServer& operator=(const StaticServer&) = delete;

    std::uint16_t port() const;
    /// "http://127.0.0.1:8000"
    std::string url() const;

  private:
    class Running;
    std::unique_ptr<Running> running_;
};

}  // namespace zelor::authoring
