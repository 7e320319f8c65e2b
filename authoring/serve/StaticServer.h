#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zelor::authoring {

/// Names and values, in order.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// One request as received; "" for a header that was not sent.
struct ServerRequest {
    std::string method;
    std::string path;  ///< as sent: percent-encoded, without the query
    std::string range;
    std::string ifRange;
    std::string ifNoneMatch;
    std::string ifModifiedSince;
};

/// How to answer a request differently from what the file calls for. The default changes nothing.
struct ServerFault {
    int status = 0;                           ///< answer this status, with `headers`, instead of the file
    HttpHeaders headers;                      ///< added to the answer
    std::optional<std::uint64_t> dropAfter;   ///< close the connection after so many body bytes
    std::optional<std::uint64_t> stallAfter;  ///< send no more after so many, until the server stops
    std::uint64_t bytesPerSecond = 0;         ///< send no faster than this; 0: as fast as it goes
    std::optional<std::uint64_t> announcedLength;  ///< Content-Length, whatever the file holds
    bool withoutLength = false;                    ///< chunked, no Content-Length
    std::string etag;                              ///< instead of the file's
    std::string contentRange;                      ///< instead of the right one, in a partial answer
};

/// What a server serves, and where it listens.
struct StaticServerOptions {
    std::string directory;              ///< to serve; nothing outside it is served
    std::string address = "127.0.0.1";  ///< a numeric IPv4 address
    std::uint16_t port = 0;             ///< 0: any free one
    /// Called once per request, on the connection's thread; may block.
    std::function<ServerFault(const ServerRequest&)> fault;
    /// Called for every answer before its first byte is sent, on the connection's thread.
    std::function<void(const ServerRequest&, int status)> answered;
};

/// A web server for the files of one directory: GET and HEAD, single ranges, ETag and Last-Modified with
/// their conditions, persistent connections. It follows no symbolic link and serves neither directories nor
/// names that begin with a dot. It runs on its own threads from construction to destruction.
class StaticServer {
  public:
    /// Throws std::runtime_error that names the directory or address when it cannot be served.
    explicit StaticServer(StaticServerOptions options);
    ~StaticServer();
    StaticServer(const StaticServer&) = delete;
    StaticServer& operator=(const StaticServer&) = delete;

    /// The port it listens on, also when any free one was asked for.
    std::uint16_t port() const;
    /// Its address, such as "http://127.0.0.1:8000".
    std::string url() const;

  private:
    class Running;
    std::unique_ptr<Running> running_;
};

}  // namespace zelor::authoring
