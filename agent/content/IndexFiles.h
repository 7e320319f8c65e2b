#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "agent/content/ContentFetch.h"
#include "trust/Client.h"

namespace zelor::agent {

/// True when the caller no longer waits for the result.
using StopSource = std::function<bool()>;

/// Fetches the metadata of a repository's index, with the limits and the outage memory of content. One
/// thread at a time.
class IndexFetcher : public trust::Fetcher {
  public:
    /// `clients` must outlive this.
    IndexFetcher(HttpClientPool& clients, RetryPolicy retry) : clients_(clients), retry_(retry) {}

    /// The fetches from now on are from `<url>/metadata/` of that mirror, take at most `longest` together,
    /// zero for no limit, and end when `stop` says so. `othersLeft`: as of a RepositoryTurn.
    void begin(const Mirror& mirror, bool othersLeft, std::chrono::milliseconds longest, StopSource stop);
    base::Result<trust::Fetched> fetch(const std::string& path, std::size_t maximum) override;

    /// Why the last fetch since `begin` failed: nobody answered, or `stop` ended it.
    bool isSilent() const { return silent_; }
    bool isStopped() const { return stopped_; }
    /// Whether the mirror gave a file since `begin`.
    bool hasServed() const { return served_; }

  private:
    HttpClientPool& clients_;
    RetryPolicy retry_;
    Mirror mirror_;
    bool othersLeft_ = false;
    Deadline deadline_{std::chrono::milliseconds(0)};
    StopSource stop_;
    bool silent_ = false;
    bool stopped_ = false;
    bool served_ = false;
};

/// The metadata kept: one file for each role in a directory of mode 0700. Replaced in one step; those of the
/// top-level roles, which versions are compared with, are flushed to the disk. One thread at a time.
class IndexStore : public trust::Store {
  public:
    /// Touches nothing on the disk yet.
    explicit IndexStore(std::string directory) : directory_(std::move(directory)) {}

    base::Result<std::optional<std::string>> read(const std::string& role, std::size_t maximum) override;
    base::Check replace(const std::string& role, const std::string& bytes) override;
    base::Check remove(const std::string& role) override;
    std::string rootHistory() override;
    base::Check replaceRootHistory(const std::string& text) override;

    /// Why the newest answer of the repository was not accepted, for a process that looks later; "" for
    /// nothing. What cannot be written is left as it was.
    void setRefusal(const std::string& text);
    std::string refusal() const;

  private:
    base::Check replaceFile(const std::string& name, const std::string& bytes, bool flush);
    base::Check removeFile(const std::string& name);
    std::string readText(const std::string& name, std::size_t limit) const;

    std::string directory_;
};

}  // namespace zelor::agent
