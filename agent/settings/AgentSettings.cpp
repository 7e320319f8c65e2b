#include "agent/AgentSettings.h"

#include <sys/stat.h>

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <map>
#include <mutex>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "agent/Files.h"
#include "base/Strings.h"
#include "base/SystemCalls.h"
#include "base/SystemRoot.h"
#include "collaborators/Common.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

constexpr std::size_t iniBytesLimit = 1U << 20U;

enum class Kind { text, path, number };

struct Documented {
    const char* key;
    const char* fallback;
    Kind kind;
};

constexpr Documented documented[] = {
    {"ScanManager.ProfileId", "Mac OS X 10.10", Kind::text},
    {"ScanManager.InstallPath", "/opt/zelor", Kind::path},
    {"Repository.Url", "", Kind::text},
    {"Repository.TrustedKey", "", Kind::path},
    {"Buffer.UnzipFolder", "/var/zelor/unzip", Kind::path},
    {"Buffer.PatchesDir", "/var/zelor/buffer", Kind::path},
    {"Buffer.PatchesDirSizeMB", "2000", Kind::number},
    {"Buffer.SpeedPercent", "25", Kind::number},
    {"Installation.VendorProducts", "silent", Kind::text},
    {"Installation.ThirdPartyProducts", "quiet", Kind::text},
    {"Limits.CommandMinutes", "0", Kind::number},
    {"Log.File", "/var/log/zelor/remediation.log", Kind::path},
    {"Log.Level", "debug", Kind::text},
};

/// Why a configured value cannot be used, "" when it can.
std::string valueProblem(Kind kind, const std::string& value) {
    if (kind == Kind::number) {
        const bool digits =
            std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
        return digits && value.size() <= 9 ? "" : "is not a whole number of at most nine digits";
    }
    if (kind == Kind::path) {
        if (value.front() != '/') return "is not an absolute path";
        if (base::hasControlCharacter(value)) return "is a path with a control character";
        if (boost::contains(value + "/", "/../")) return "is a path with \"..\"";
    }
    return "";
}

/// The tree of a well-formed ini text; throws std::runtime_error otherwise.
boost::property_tree::ptree readTree(const std::string& iniFile) {
    // Managed machines often link their configuration into place, so a link is followed here.
    std::istringstream text(readBounded(iniFile, iniBytesLimit, Links::follow));
    boost::property_tree::ptree tree;
    try {
        boost::property_tree::read_ini(text, tree);
    } catch (const boost::property_tree::ini_parser_error& e) {
        throw std::runtime_error(iniFile + ", line " + std::to_string(e.line()) + ": " + e.message());
    }
    return tree;
}

std::string belowRoot(const std::string& path) {
    const std::string stripped = Common::StripTrailingSeparators(path);
    return underSystemRoot(stripped.empty() ? "/" : stripped);
}

/// What tells one state of the file from another: nothing else in it is looked at.
struct Stamp {
    bool exists = false;
    std::tuple<dev_t, ino_t, off_t, time_t, long> state{};
    bool operator==(const Stamp& other) const { return exists == other.exists && state == other.state; }
};

Stamp stampOf(const std::string& iniFile) {
    struct stat status {};
    if (::stat(iniFile.c_str(), &status) != 0) return {};
    const timespec time = base::modificationTime(status);
    return {true, {status.st_dev, status.st_ino, status.st_size, time.tv_sec, time.tv_nsec}};
}

struct Cache {
    struct Entry {
        Stamp stamp;
        std::shared_ptr<const AgentSettings> settings;
    };
    std::mutex mutex;
    std::map<std::string, Entry> byRootAndFile;
};

std::shared_ptr<const AgentSettings> cachedUnreported(const std::string& iniFile) {
    // Kept to the very end of the process: a run's thread may outlive main().
    static Cache& cache = *new Cache;
    const Stamp stamp = stampOf(iniFile);
    const std::lock_guard<std::mutex> lock(cache.mutex);
    Cache::Entry& entry = cache.byRootAndFile[getSystemRoot() + '\0' + iniFile];
    if (!entry.settings || !(entry.stamp == stamp)) entry = {stamp, AgentSettings::load(iniFile)};
    return entry.settings;
}

}  // namespace

std::shared_ptr<const AgentSettings> AgentSettings::load(const std::string& iniFile) {
    auto settings = std::make_shared<AgentSettings>();
    settings->iniFile_ = iniFile;
    boost::property_tree::ptree tree;
    try {
        tree = readTree(iniFile);
    } catch (const std::exception& e) {
        settings->problems_.push_back(std::string("[AgentSettings] ") + e.what() +
                                      "; all settings take their defaults until the file is put right");
    }
    for (const Documented& known : documented) {
        std::string value = boost::trim_copy(tree.get(known.key, std::string()));
        const std::string problem = value.empty() ? "" : valueProblem(known.kind, value);
        if (!problem.empty()) {
            std::string line = "[AgentSettings] " + iniFile + ": ";
            line.append(known.key).append(" = \"").append(value).append("\" ").append(problem);
            line.append("; taking the default \"").append(known.fallback).append("\"");
            settings->problems_.push_back(line);
            value.clear();
        }
        const bool fromFile = !value.empty();
        if (!fromFile) value = known.fallback;
        if (known.kind == Kind::path && !value.empty()) value = belowRoot(value);
        settings->settings_.push_back({known.key, value, fromFile});
    }
    return settings;
}

std::shared_ptr<const AgentSettings> AgentSettings::cached(const std::string& iniFile) {
    auto settings = cachedUnreported(iniFile);
    settings->reportProblems([](const std::string& line) { log::error(line); });
    return settings;
}

std::shared_ptr<const AgentSettings> AgentSettings::current() {
    return cached(underSystemRoot(agentIniFile));
}

std::shared_ptr<const AgentSettings> AgentSettings::currentUnreported() {
    return cachedUnreported(underSystemRoot(agentIniFile));
}

const std::string& AgentSettings::get(const std::string& key) const {
    static const std::string none;
    const auto found = std::find_if(settings_.begin(), settings_.end(),
                                    [&](const Setting& setting) { return setting.key == key; });
    return found == settings_.end() ? none : found->value;
}

void AgentSettings::reportProblems(const std::function<void(const std::string& line)>& report) const {
    if (reported_.exchange(true)) return;
    for (const std::string& line : problems_)
        report(line);
}

}  // namespace zelor::agent
