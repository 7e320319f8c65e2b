#pragma once

#include <algorithm>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/Result.h"
#include "trust/Metadata.h"
#include "trust/RootHistory.h"
#include "trust/Rules.h"

/// Learns from signed metadata which files of a repository are the newest, although its server, its mirrors
/// and the network are not trusted. This library reaches network and disk through the two interfaces here
/// alone, and time through a value.
namespace zelor::trust {

/// The answer to a fetch.
struct Fetched {
    bool found = false;  ///< false: the server says that there is no such file
    std::string bytes;
};

/// Gets files of a repository.
class Fetcher {
  public:
    virtual ~Fetcher() = default;
    /// The file at `path`, which is relative to the repository and percent-encoded. Fails when it has more
    /// than `maximum` bytes, of which no more may be read, and when the server gives no clear answer. Does
    /// not throw.
    virtual base::Result<Fetched> fetch(const std::string& path, std::size_t maximum) = 0;
};

/// Keeps one metadata file for each role. Role names come from the network: percentEncoded of one, with
/// ".json" behind it, is a safe file name.
class Store {
  public:
    virtual ~Store() = default;
    /// What is kept for `role`; nothing when there is no file. Fails when it cannot be read or has more than
    /// `maximum` bytes. None of the functions throws.
    virtual base::Result<std::optional<std::string>> read(const std::string& role, std::size_t maximum) = 0;
    /// Puts `bytes` in the place of what is kept, so that a crash leaves the old or the new.
    virtual base::Check replace(const std::string& role, const std::string& bytes) = 0;
    /// Removes what is kept; there may be nothing.
    virtual base::Check remove(const std::string& role) = 0;

    /// The text that `replaceRootHistory` got last; "" without one that can be read. For a store that keeps
    /// none, a configured root is of the kept one's repository only when the keys of one signed the other.
    virtual std::string rootHistory() { return ""; }
    virtual base::Check replaceRootHistory(const std::string& /*text*/) { return {}; }
};

/// How a client works.
struct ClientOptions {
    Time now = 0;  ///< the time of this update, for all of it; the caller says what it trusts
    Limits limits;
    /// Whether a later time counts in its place when an accepted timestamp says that it was signed then: so a
    /// clock that was set back makes nothing young again. It counts until the keys of timestamp or snapshot
    /// are replaced.
    bool signedTime = true;
};

/// How old what is trusted is.
struct RoleState {
    std::string role;
    std::int64_t version = 0;
    Time expires = 0;
    Time signedAt = 0;  ///< when it was signed, as far as it says so: only a timestamp does; 0: not known
};

/// One update of what is known of one repository. Failures are one line with role, version, cause and remedy;
/// after one, what was accepted before stays in force and on disk. One thread at a time.
///
///     Client client(fetcher, store, {now, {}});
///     client.initialise(configuredRoot)   // harmless when the store has a newer root of that repository
///     client.refresh()                    // on failure, findKept still answers
///     client.find("CVE-2024-1.xml")       // length and digests of the newest file
class Client {
  public:
    /// `metadata` and `store` must outlive the client.
    Client(Fetcher& metadata, Store& store, ClientOptions options)
        : fetcher_(metadata), store_(store), options_(options) {}

    /// Begins from a root that came by another way than the repository. A kept root that is intact and came
    /// after it stays. A later root of the kept one's repository replaces that; timestamp and snapshot stay
    /// unless their keys changed, so that what is older is still refused. Where no root is kept, and for a
    /// root that is not known to be of that repository, all begins anew, and the kept timestamp and snapshot
    /// are removed. Returns a line for the log when that gave up a kept root, "" otherwise.
    base::Result<std::string> initialise(const std::string& root);

    /// Reads what is kept, without the network and whatever its age. What is damaged, or signed by keys that
    /// the root no longer has, counts as missing; without a root it fails.
    base::Check load();

    /// Brings everything up to the targets up to date: root by root, then timestamp, snapshot and targets.
    base::Check refresh();

    /// The target of that path after a successful refresh; nothing when no role that may lists it. Fetches
    /// the delegated roles on the way; fails when one of those cannot be had or is not accepted.
    base::Result<std::optional<TargetFile>> find(const std::string& path);

    /// The same from what is kept, whatever its age, after load or a refresh that failed. Nothing is fetched.
    base::Result<std::optional<TargetFile>> findKept(const std::string& path);

    /// The bytes of `target` from `targets`, of the listed length and digests.
    base::Result<std::string> download(const TargetFile& target, Fetcher& targets) const;

    /// Where `target` is, relative to the targets and percent-encoded.
    std::string downloadPath(const TargetFile& target) const;

    /// The time that expiry is judged at, after `load` or `refresh`.
    Time now() const { return std::max(options_.now, signedAt_); }

    /// Root, timestamp, snapshot and targets, as far as they are known.
    std::vector<RoleState> roles() const;

  private:
    /// What was accepted, and the bytes it was read from.
    template <class Content>
    struct Kept {
        Content content;
        std::string bytes;
    };
    using SharedTargets = std::shared_ptr<const Targets>;
    enum class From { network, store };

    base::Result<std::string> loadRoot();
    void loadTheRest();
    base::Check startFrom(const Root& root, const std::string& bytes, bool forget, RootHistory history);
    base::Check remember(const std::string& root, RootHistory history);
    base::Check updateRoot();
    base::Result<bool> takeNextRoot();
    base::Check forgetWhatOldKeysSigned();
    base::Check updateTimestamp();
    base::Check updateSnapshot();
    base::Check updateTargets();
    base::Result<std::optional<TargetFile>> search(const std::string& path, From from);
    base::Result<SharedTargets> delegated(const Targets& parent, const Delegation& delegation, From from);
    base::Result<Targets> readDelegated(const Targets& parent, const Delegation& delegation, From from);

    std::optional<std::string> kept(const std::string& role, std::size_t maximum);
    base::Result<std::string> fetch(const std::string& role, std::int64_t version, const std::string& path,
                                    std::size_t maximum);
    base::Result<std::string> fetchListed(const std::string& role, const ListedFile& listed,
                                          std::size_t limit);
    base::Check keep(const std::string& role, std::int64_t version, const std::string& bytes);
    void learnTime(const Timestamp& timestamp);

    Fetcher& fetcher_;
    Store& store_;
    ClientOptions options_;
    Time signedAt_ = 0;  ///< the latest time that an accepted timestamp was signed at
    std::optional<Root> root_;
    std::optional<Timestamp> timestamp_;
    std::optional<Kept<Snapshot>> snapshot_;
    std::string targetsBytes_;
    SharedTargets targets_;
    bool refreshed_ = false;
    /// Delegated roles by who delegates to them: another role may name other keys for the same name.
    std::map<std::pair<const Targets*, std::string>, SharedTargets> delegated_;
};

}  // namespace zelor::trust
