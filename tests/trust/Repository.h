#pragma once

#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "trust/Client.h"
#include "trust/PathPattern.h"
#include "trust/PrivateKey.h"

namespace zelor::trust {

constexpr Time kNow = 1'800'000'000;

/// A key made for the whole test program, the same for each number.
inline const PrivateKey& testKey(std::size_t number) {
    static std::map<std::size_t, PrivateKey> keys;
    const auto found = keys.find(number);
    return found != keys.end() ? found->second
                               : keys.emplace(number, PrivateKey::make("ed25519").value()).first->second;
}

/// A repository in memory. Tests change `content` and `signers`, and sign again.
class Repository : public Fetcher {
  public:
    std::map<std::string, Json> content;  ///< by role
    std::map<std::string, std::vector<PrivateKey>> signers;
    std::map<std::string, std::string> files;  ///< by path
    std::set<std::string> broken;              ///< paths that the server fails to serve
    std::vector<std::string> requests;
    bool listDigests = true;

    Repository() {
        content["root"] = header("root");
        content["root"].update(
            {{"consistent_snapshot", true}, {"keys", Json::object()}, {"roles", Json::object()}});
        std::size_t number = 0;
        for (const char* role : {"root", "timestamp", "snapshot", "targets"})
            setKeys(role, {testKey(number++)});
        content["targets"] = header("targets");
        content["targets"]["targets"] = Json::object();
        for (const char* role : {"snapshot", "timestamp"})
            content[role] = header(role);
        sign("root");
        addTarget("targets", "a.xml", "first");
        publish();
    }

    static Json header(const std::string& type) {
        return {{"_type", type},
                {"spec_version", "1.0.31"},
                {"version", type == "root" ? 1 : 5},
                {"expires", timeText(kNow + 1000)}};
    }

    void setKeys(const std::string& role, std::vector<PrivateKey> keys, int threshold = 1) {
        Json ids = Json::array();
        for (const PrivateKey& key : keys) {
            content["root"]["keys"][key.id()] = key.publicKey();
            ids.push_back(key.id());
        }
        content["root"]["roles"][role] = {{"keyids", ids}, {"threshold", threshold}};
        signers[role] = std::move(keys);
    }

    void addTarget(const std::string& role, const std::string& path, const std::string& bytes) {
        const std::string digest = *digestOf("sha256", bytes);
        content[role]["targets"][path] = {{"length", bytes.size()}, {"hashes", {{"sha256", digest}}}};
        const auto name = path.rfind('/') + 1;
        files[consistent() ? path.substr(0, name) + digest + "." + path.substr(name) : path] = bytes;
    }

    /// `parent` trusts `role` with `what`, which has "paths" or "path_hash_prefixes".
    void delegate(const std::string& parent, const std::string& role, const Json& what,
                  bool terminating = false) {
        const PrivateKey& key = testKey(10);
        if (content.count(role) == 0) {
            content[role] = header("targets");
            content[role]["targets"] = Json::object();
        }
        signers[role] = {key};
        Json& delegations = content[parent]["delegations"];
        delegations["keys"][key.id()] = key.publicKey();
        Json entry = {{"name", role}, {"keyids", {key.id()}}, {"threshold", 1}, {"terminating", terminating}};
        entry.update(what);
        delegations["roles"].push_back(entry);
    }

    bool consistent() const { return content.at("root").value("consistent_snapshot", false); }

    std::string nameOf(const std::string& role) const {
        const std::string version = content.at(role)["version"].dump() + ".";
        const bool versioned = role == "root" || (role != "timestamp" && consistent());
        return (versioned ? version : "") + percentEncoded(role) + ".json";
    }

    void sign(const std::string& role) {
        files[nameOf(role)] = PrivateKey::signedFile(content.at(role), signers.at(role)).value();
    }

    /// What is said of a role's file.
    Json listed(const std::string& role) const {
        Json entry = {{"version", content.at(role)["version"]}};
        if (!listDigests) return entry;
        const std::string& bytes = files.at(nameOf(role));
        entry.update({{"length", bytes.size()}, {"hashes", {{"sha256", *digestOf("sha256", bytes)}}}});
        return entry;
    }

    void signTimestamp() {
        content["timestamp"]["meta"] = {{"snapshot.json", listed("snapshot")}};
        sign("timestamp");
    }
    void signSnapshot() {
        sign("snapshot");
        signTimestamp();
    }
    void publish() {
        for (const auto& [role, json] : content) {
            if (json["_type"] != "targets") continue;
            sign(role);
            content["snapshot"]["meta"][role + ".json"] = listed(role);
        }
        signSnapshot();
    }
    void raise(const std::string& role, int by = 1) {
        content[role]["version"] = content[role]["version"].get<int>() + by;
    }
    /// A new publication.
    void next(int by = 1) {
        for (const char* role : {"timestamp", "snapshot", "targets"})
            raise(role, by);
        publish();
    }
    void nextRoot() {
        raise("root");
        sign("root");
    }

    base::Result<Fetched> fetch(const std::string& path, std::size_t maximum) override {
        requests.push_back(path);
        if (broken.count(path) != 0) return base::failure("the server answered 500");
        const auto found = files.find(path);
        if (found == files.end()) return Fetched{};
        if (found->second.size() > maximum) return base::failure("it has more bytes than allowed");
        return Fetched{true, found->second};
    }
};

/// Metadata kept in memory.
struct MemoryStore : Store {
    std::map<std::string, std::string> files;
    std::string history;
    bool full = false;

    base::Result<std::optional<std::string>> read(const std::string& role, std::size_t /*maximum*/) override {
        const auto found = files.find(role);
        return found == files.end() ? std::optional<std::string>() : found->second;
    }
    base::Check replace(const std::string& role, const std::string& bytes) override {
        if (full) return base::failure("no space left");
        files[role] = bytes;
        return {};
    }
    base::Check remove(const std::string& role) override {
        files.erase(role);
        return {};
    }
    std::string rootHistory() override { return history; }
    base::Check replaceRootHistory(const std::string& text) override {
        history = text;
        return {};
    }
};

/// A client that trusts the repository's first root.
struct World {
    Repository repository;
    MemoryStore store;
    Client client{repository, store, {kNow, {}}};

    World() {
        if (!client.initialise(repository.files.at("1.root.json"))) throw std::logic_error("the root");
    }
    /// Why the refresh failed, "" when it did not.
    std::string refresh() {
        repository.requests.clear();
        const auto result = client.refresh();
        return result ? "" : result.error().text;
    }
    /// "role version" of what is trusted.
    std::string versions() const {
        std::string text;
        for (const RoleState& state : client.roles())
            text += (text.empty() ? "" : " ") + state.role + std::to_string(state.version);
        return text;
    }
};

}  // namespace zelor::trust
