#include "authoring/metadata/MetadataCheck.h"

#include <boost/filesystem.hpp>
#include <map>
#include <set>

#include "agent/content/ContentDocument.h"
#include "authoring/metadata/MetadataStatus.h"
#include "base/Files.h"
#include "base/Strings.h"
#include "trust/Client.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr const char* kPublish = "publish again with --metadata-keys";

/// The files of a directory, as a server would serve them.
class DirectoryFetcher : public trust::Fetcher {
  public:
    explicit DirectoryFetcher(std::string directory) : directory_(std::move(directory)) {}

    base::Result<trust::Fetched> fetch(const std::string& path, std::size_t maximum) override {
        const std::string file = directory_ + '/' + path;
        boost::system::error_code none;
        if (!fs::exists(file, none)) return trust::Fetched{};
        try {
            return trust::Fetched{true, base::readBounded(file, maximum)};
        } catch (const std::exception& e) {
            return base::failure(e.what());
        }
    }

  private:
    std::string directory_;
};

/// Keeps for as long as the check lasts.
class MemoryStore : public trust::Store {
  public:
    base::Result<std::optional<std::string>> read(const std::string& role, std::size_t /*maximum*/) override {
        const auto found = files_.find(role);
        return found == files_.end() ? std::optional<std::string>() : found->second;
    }
    base::Check replace(const std::string& role, const std::string& bytes) override {
        files_[role] = bytes;
        return {};
    }
    base::Check remove(const std::string& role) override {
        files_.erase(role);
        return {};
    }

  private:
    std::map<std::string, std::string> files_;
};

/// Looks at the files of one repository through a client.
class MetadataCheck {
  public:
    MetadataCheck(const std::string& repository, trust::Time now)
        : repository_(repository),
          directory_(repository),
          now_(now),
          fetcher_(repository + "/metadata"),
          client_(fetcher_, store_, {now, {}}) {}

    Findings run() {
        if (!directory_.exists()) {
            if (fs::exists(repository_ + "/metadata"))
                error("metadata", "it has no 1.root.json, so nothing in it can be trusted",
                      "restore the roots from a backup");
            return findings_;
        }
        const auto begun = client_.initialise(directory_.root(1));
        const base::Check good = begun ? client_.refresh() : base::failure(begun.error());
        if (!good) {
            error("metadata", "agents refuse it: " + good.error().text, "see zelor-content status");
            return findings_;
        }
        const std::set<std::string> names = checkContent();
        checkListed(names);
        for (const RoleReport& role : metadataStatus(directory_)) {
            const std::string problem = attention(role, now_, -1);
            const auto remedy = problem.find("; ");
            if (!problem.empty())
                findings_.push_back(
                    {Severity::warning, "metadata", problem.substr(0, remedy), problem.substr(remedy + 2)});
        }
        return findings_;
    }

  private:
    void error(const std::string& place, const std::string& what, const std::string& remedy) {
        findings_.push_back({Severity::error, place, what, remedy});
    }

    std::string read(const std::string& path) const {
        try {
            return base::readBounded(repository_ + '/' + path, agent::kContentBytesLimit);
        } catch (const std::exception&) {
            return "";
        }
    }

    std::set<std::string> checkContent() {
        std::set<std::string> paths;
        boost::system::error_code none;
        for (fs::directory_iterator it(repository_ + "/content", none), end; it != end; ++it) {
            const std::string name = it->path().filename().string();
            if (base::hasEnding(name, ".xml") && name[0] != '.' && !isNamedByDigest(name))
                paths.insert("content/" + name);
        }
        for (const std::string& path : paths)
            checkFile(path);
        return paths;
    }

    void checkFile(const std::string& path) {
        const auto target = client_.find(path);
        if (!target) return error(path, target.error().text, kPublish);
        if (!*target) return error(path, "the metadata does not list it, so agents do not see it", kPublish);
        if (const auto same = trust::checkBytes(read(path), (*target)->length, (*target)->digests); !same)
            error(path, "the metadata lists another file: " + same.error().text, kPublish);
    }

    void checkListed(const std::set<std::string>& paths) {
        const auto writer = trust::RepositoryWriter::open(directory_.newest(), {});
        if (!writer) return error("metadata", writer.error().text, kPublish);
        for (const auto& [path, file] : writer->targets()) {
            if (paths.count(path) == 0) error(path, "the metadata lists it, and it is missing", kPublish);
            const std::string served = client_.downloadPath(file);
            if (!trust::checkBytes(read(served), file.length, file.digests))
                error(served, "agents ask for " + path + " by this name, and it is missing or another file",
                      kPublish);
        }
    }

    const std::string& repository_;
    MetadataDirectory directory_;
    trust::Time now_;
    DirectoryFetcher fetcher_;
    MemoryStore store_;
    trust::Client client_;
    Findings findings_;
};

}  // namespace

Findings metadataFindings(const std::string& repository, trust::Time now) {
    return MetadataCheck(repository, now).run();
}

}  // namespace zelor::authoring
