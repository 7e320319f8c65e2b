// zelor-trust-client: the trust library behind the command line that public conformance tests of clients use.
#include <unistd.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <ctime>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "agent/http/HttpClient.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "trust/Client.h"
#include "trust/PathPattern.h"

namespace {

using namespace zelor;
namespace fs = boost::filesystem;

constexpr const char* kUsage =
    "usage: zelor-trust-client --metadata-dir DIR init ROOT\n"
    "       zelor-trust-client --metadata-dir DIR --metadata-url URL refresh\n"
    "       zelor-trust-client --metadata-dir DIR --metadata-url URL --target-name NAME...\n"
    "                          --target-base-url URL --target-dir DIR download\n";
constexpr std::size_t kRootLimit = 1U << 20U;

/// The files below an address.
class HttpFetcher : public trust::Fetcher {
  public:
    explicit HttpFetcher(std::string url) : url_(std::move(url)) {
        if (url_.empty() || url_.back() != '/') url_ += '/';
    }

    base::Result<trust::Fetched> fetch(const std::string& path, std::size_t maximum) override {
        trust::Fetched fetched;
        bool tooLong = false;
        agent::HttpRequest request;
        request.url = url_ + path;
        request.onBody = [&](std::string_view bytes) {
            tooLong = bytes.size() > maximum - fetched.bytes.size();
            if (!tooLong) fetched.bytes += bytes;
            return !tooLong;
        };
        const agent::HttpResult result = client_.perform(request);
        if (tooLong) return base::failure("it has more than " + std::to_string(maximum) + " bytes");
        if (result.outcome != agent::HttpOutcome::answered)
            return base::failure(request.url + ": " + result.error);
        const long status = result.head.status;
        if (status == 404 || status == 403) return trust::Fetched{};
        if (status != 200) return base::failure(request.url + ": status " + std::to_string(status));
        fetched.found = true;
        return fetched;
    }

  private:
    std::string url_;
    agent::HttpClient client_;
};

/// One file for each role in a directory.
class DirectoryStore : public trust::Store {
  public:
    explicit DirectoryStore(std::string directory) : directory_(std::move(directory)) {}

    base::Result<std::optional<std::string>> read(const std::string& role, std::size_t maximum) override {
        if (::access(path(role).c_str(), F_OK) != 0 && errno == ENOENT) return std::optional<std::string>();
        try {
            return std::optional<std::string>(base::readBounded(path(role), maximum));
        } catch (const std::exception& e) {
            return base::failure(e.what());
        }
    }
    base::Check replace(const std::string& role, const std::string& bytes) override {
        try {
            base::replaceFile(path(role), bytes);
            return {};
        } catch (const std::exception& e) {
            return base::failure(e.what());
        }
    }
    base::Check remove(const std::string& role) override {
        if (::unlink(path(role).c_str()) == 0 || errno == ENOENT) return {};
        return base::systemFailure(path(role));
    }

  private:
    std::string path(const std::string& role) const {
        return directory_ + "/" + trust::percentEncoded(role) + ".json";
    }

    std::string directory_;
};

/// What the command line says.
struct Arguments {
    std::map<std::string, std::vector<std::string>> options;
    std::vector<std::string> words;

    /// The last value of an option; throws std::runtime_error without one.
    const std::string& value(const std::string& option) const {
        const auto found = options.find(option);
        if (found == options.end()) throw std::runtime_error(option + " is missing\n" + kUsage);
        return found->second.back();
    }
};

Arguments parse(int count, char** texts) {
    static const std::vector<std::string> kOptions = {"--metadata-dir", "--metadata-url", "--target-name",
                                                      "--target-base-url", "--target-dir"};
    Arguments arguments;
    for (int i = 1; i < count; ++i) {
        const std::string text = texts[i];
        if (text.rfind("--", 0) != 0) {
            arguments.words.push_back(text);
            continue;
        }
        const auto equals = text.find('=');
        const std::string name = text.substr(0, equals);
        const bool known = std::find(kOptions.begin(), kOptions.end(), name) != kOptions.end();
        if (!known || (equals == std::string::npos && i + 1 == count))
            throw std::runtime_error(text + " is unknown or lacks a value\n" + kUsage);
        arguments.options[name].push_back(equals == std::string::npos ? texts[++i] : text.substr(equals + 1));
    }
    return arguments;
}

bool report(const base::Failure& failure) {
    std::cerr << "zelor-trust-client: " << failure.text << '\n';
    return false;
}

bool isThere(const std::string& file, const trust::TargetFile& target) {
    if (::access(file.c_str(), F_OK) != 0) return false;
    try {
        const std::string bytes = base::readBounded(file, static_cast<std::size_t>(target.length));
        return trust::checkBytes(bytes, target.length, target.digests).has_value();
    } catch (const std::exception&) {
        return false;  // it is replaced
    }
}

bool download(trust::Client& client, const std::string& name, trust::Fetcher& targets,
              const std::string& directory) {
    const auto target = client.find(name);
    if (!target) return report(target.error());
    if (!*target) return report({"no role lists the target " + name, 0});
    const std::string file = directory + "/" + trust::percentEncoded(name);
    if (isThere(file, **target)) return true;
    const auto bytes = client.download(**target, targets);
    if (!bytes) return report(bytes.error());
    base::replaceFile(file, *bytes);
    return true;
}

bool run(const Arguments& arguments) {
    const std::string command = arguments.words.empty() ? "" : arguments.words[0];
    DirectoryStore store(arguments.value("--metadata-dir"));
    const trust::ClientOptions options{std::time(nullptr), {}};
    if (command == "init" && arguments.words.size() == 2) {
        fs::create_directories(arguments.value("--metadata-dir"));
        HttpFetcher none("");  // nothing is fetched
        const auto done =
            trust::Client(none, store, options)
                .initialise(base::readBounded(arguments.words[1], kRootLimit, base::Links::follow));
        return done || report(done.error());
    }
    if ((command != "refresh" && command != "download") || arguments.words.size() != 1)
        throw std::runtime_error(std::string("init, refresh or download?\n") + kUsage);
    HttpFetcher metadata(arguments.value("--metadata-url"));
    trust::Client client(metadata, store, options);
    if (const auto done = client.refresh(); !done) return report(done.error());
    if (command == "refresh") return true;
    HttpFetcher targets(arguments.value("--target-base-url"));
    const std::string& directory = arguments.value("--target-dir");
    (void)arguments.value("--target-name");
    fs::create_directories(directory);
    const auto& names = arguments.options.at("--target-name");
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name) { return download(client, name, targets, directory); });
}

}  // namespace

int main(int count, char** texts) {
    try {
        return run(parse(count, texts)) ? 0 : 1;
    } catch (const std::exception& e) {
        std::cerr << "zelor-trust-client: " << e.what() << '\n';
        return 1;
    }
}
