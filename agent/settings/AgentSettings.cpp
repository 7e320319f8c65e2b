#include "agent/AgentSettings.h"

#include <algorithm>
#include <boost/algorithm/string.hpp>
#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>
#include <map>
#include <sstream>
#include <stdexcept>

#include "agent/settings/SettingsTable.h"
#include "base/Files.h"
#include "base/Mutex.h"
#include "base/SystemRoot.h"
#include "platform/Log.h"

namespace zelor::agent {

namespace {

constexpr std::size_t kIniBytesLimit = 1U << 20U;

// A file that is not an ini file at all may have thousands.
constexpr std::size_t kWarningsLimit = 20;

/// The tree of a well-formed ini text; throws std::runtime_error otherwise.
boost::property_tree::ptree readTree(const std::string& iniFile) {
    // On managed machines, configuration files are often symbolic links, so a link is followed here.
    std::istringstream text(base::readBounded(iniFile, kIniBytesLimit, base::Links::follow));
    boost::property_tree::ptree tree;
    try {
        boost::property_tree::read_ini(text, tree);
    } catch (const boost::property_tree::ini_parser_error& e) {
        throw std::runtime_error(iniFile + ", line " + std::to_string(e.line()) + ": " + e.message());
    }
    return tree;
}

/// The unknown keys of the file, each with the nearest known one.
std::vector<std::string> unknownKeys(const boost::property_tree::ptree& tree) {
    std::vector<std::string> unknown;
    const auto add = [&](const std::string& section, const std::string& key) {
        const std::string nearest = nearestKey(section, key);
        unknown.push_back(
            (section.empty() ? key + " outside the sections" : "[" + section + "] " + key) +
            " is not a known key and is ignored; " +
            (nearest.empty() ? "the manual page lists the known ones" : "the nearest one is " + nearest));
    };
    for (const auto& top : tree) {
        if (top.second.empty()) add("", top.first);
        for (const auto& inner : top.second) {
            if (!isKnownKey(top.first, inner.first)) add(top.first, inner.first);
        }
    }
    if (unknown.size() > kWarningsLimit) {
        const std::size_t more = unknown.size() - kWarningsLimit;
        unknown.resize(kWarningsLimit);
        unknown.push_back(std::to_string(more) + " more keys are not known");
    }
    return unknown;
}

struct Cache {
    struct Entry {
        base::FileStamp stamp;
        std::shared_ptr<const AgentSettings> settings;
    };
    base::Mutex mutex;
    std::map<std::string, Entry> byRootAndFile ZELOR_GUARDED_BY(mutex);
};

std::shared_ptr<const AgentSettings> cachedUnreported(const std::string& iniFile) {
    // Never destroyed: a run's thread may outlive main().
    static Cache& cache = *new Cache;
    const base::FileStamp stamp = base::stampOf(iniFile);
    const base::MutexLock lock(cache.mutex);
    Cache::Entry& entry = cache.byRootAndFile[getSystemRoot() + '\0' + iniFile];
    if (!entry.settings || entry.stamp != stamp) entry = {stamp, AgentSettings::load(iniFile)};
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
    for (const SettingEntry& known : settingsTable())
        settings->take(known, boost::trim_copy(tree.get(known.name(), std::string())));
    for (const std::string& unknown : unknownKeys(tree))
        settings->warnings_.push_back("[AgentSettings] " + iniFile + ": " + unknown);
    return settings;
}

std::shared_ptr<const AgentSettings> AgentSettings::cached(const std::string& iniFile) {
    auto settings = cachedUnreported(iniFile);
    settings->reportProblems([](const std::string& line) { log::error(line); });
    return settings;
}

std::shared_ptr<const AgentSettings> AgentSettings::current() {
    return cached(underSystemRoot(kAgentIniFile));
}

std::shared_ptr<const AgentSettings> AgentSettings::currentUnreported() {
    return cachedUnreported(underSystemRoot(kAgentIniFile));
}

void AgentSettings::take(const SettingEntry& known, std::string value) {
    const base::Check usable = value.empty() ? base::Check() : checkValue(known.type, value);
    if (!usable) {
        std::string line = "[AgentSettings] " + iniFile_ + ": " + known.name();
        // A proxy's address may have a password.
        if (known.type != SettingType::proxy) line.append(" = \"").append(value).append("\"");
        line.append(" ").append(usable.error().text);
        line.append("; taking the default \"").append(known.fallback).append("\"");
        // The log works at any level, so this is only a warning.
        (known.type == SettingType::level ? warnings_ : problems_).push_back(line);
        value.clear();
    }
    const bool fromFile = !value.empty();
    if (!fromFile) value = known.fallback;
    storeValue(known, value, values_);
    if (known.type == SettingType::path) value = values_.*std::get<std::string Settings::*>(known.field);
    settings_.push_back({known.name(), value, fromFile});
}

void AgentSettings::reportProblems(const std::function<void(const std::string& line)>& report) const {
    if (reported_.exchange(true)) return;
    for (const std::string& line : problems_)
        report(line);
    for (const std::string& line : warnings_)
        report(line);
}

}  // namespace zelor::agent
