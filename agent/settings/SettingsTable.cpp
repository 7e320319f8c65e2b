#include "agent/settings/SettingsTable.h"

#include <algorithm>
#include <boost/algorithm/string/predicate.hpp>
#include <cctype>
#include <cstring>

#include "base/Strings.h"
#include "base/SystemRoot.h"
#include "collaborators/Common.h"

namespace zelor::agent {

namespace {

/// Longer names are not typing errors.
constexpr std::size_t kNameBytesLimit = 64;

/// Whether two words are so similar that one may be a misspelling of the other.
bool isNear(const std::string& one, const std::string& other, std::size_t distance) {
    return distance * 3 <= std::max(one.size(), other.size());
}

std::string belowRoot(const std::string& path) {
    const std::string stripped = Common::StripTrailingSeparators(path);
    return underSystemRoot(stripped.empty() ? "/" : stripped);
}

base::Check checkProxy(const std::string& value) {
    if (value == kSystemProxy) return {};
    const bool http = boost::istarts_with(value, "http://") || boost::istarts_with(value, "https://");
    const std::string rest = http ? value.substr(value.find("://") + 3) : "";
    const std::string host = rest.substr(rest.find('@') == std::string::npos ? 0 : rest.rfind('@') + 1);
    if (host.empty() || host.front() == ':' || rest.find_first_of("/?# ") != std::string::npos ||
        base::hasControlCharacter(value))
        return base::failure(
            "is not the address of a proxy, such as http://proxy.example.com:3128, and not system");
    return {};
}

LogLevel levelOf(const std::string& value) {
    if (value == "info") return LogLevel::info;
    return value == "error" ? LogLevel::error : LogLevel::debug;
}

Freshness freshnessOf(const std::string& value) {
    if (value == "off") return Freshness::off;
    return value == "require" ? Freshness::require : Freshness::warn;
}

}  // namespace

const std::vector<SettingEntry>& settingsTable() {
    using S = Settings;
    using T = SettingType;
    // Never destroyed: a run's thread may outlive main().
    static const auto& table = *new std::vector<SettingEntry>{
        {"ScanManager", "ProfileId", T::text, "",
         "Name of the operating-system profile that the scanner works with.", &S::profileId},
        {"ScanManager", "InstallPath", T::path, "/opt/zelor", "The agent's install directory.",
         &S::installPath},
        {"Repository", "Url", T::text, "",
         "Base address of the remediation repository, a static web server, or several, separated by blanks "
         "or commas.",
         &S::repositoryUrl},
        {"Repository", "TrustedKey", T::path, "",
         "PEM file with the public key or certificate that signatures are checked against.", &S::trustedKey},
        {"Repository", "RequireDigests", T::flag, "false",
         "Whether a patch is used only when its content gives the digests of its file and of its archive: "
         "true or false.",
         &S::requireDigests},
        {"Repository", "Root", T::path, "",
         "Root metadata file from which the repository's signed index is checked.", &S::root},
        {"Repository", "Freshness", T::freshness, "warn",
         "What is made of an index that has expired or is older than one seen before: off, warn or require.",
         &S::freshness},
        {"Network", "Proxy", T::proxy, "",
         "Address of the web proxy that the repository is asked through, http://host:port or "
         "https://host:port; or system, for the proxy of the Mac's network settings.",
         &S::proxy},
        {"Network", "NoProxy", T::hosts, "",
         "Hosts that are asked without the proxy: names and addresses, separated by blanks or commas.",
         &S::noProxy},
        {"Network", "CaFile", T::path, "",
         "PEM file with the certificates of the authorities that may vouch for a server, instead of the "
         "system's.",
         &S::caFile},
        {"Buffer", "UnzipFolder", T::path, "/var/zelor/unzip",
         "Directory that holds the list of buffered patches.", &S::unzipDirectory},
        {"Buffer", "PatchesDir", T::path, "/var/zelor/buffer", "Directory that holds the buffered archives.",
         &S::patchesDir},
        {"Buffer", "PatchesDirSizeMB", T::number, "2000",
         "Size in MiB that the buffered archives may reach together; at most 2047.", &S::patchesDirSizeMB},
        {"Buffer", "SpeedPercent", T::number, "25",
         "Share of the measured bandwidth, in percent, that buffering may use.", &S::speedPercent},
        {"Installation", "VendorProducts", T::text, "silent",
         "How operating-system updates are installed: interactive (any case) leaves them to the user, any "
         "other text installs them unattended.",
         &S::vendorProducts},
        {"Installation", "ThirdPartyProducts", T::text, "quiet",
         "How products of other vendors are installed: nothing depends on it, they are always installed "
         "unattended.",
         &S::thirdPartyProducts},
        {"Limits", "CommandMinutes", T::number, "0",
         "Time in minutes that one external command may take; 0 means no limit.", &S::commandMinutes},
        {"Limits", "RunMinutes", T::number, "720",
         "Time in minutes that one run may take, after which it ends like a cancelled one; 0 means no limit.",
         &S::runMinutes},
        {"Limits", "ContentSeconds", T::number, "120",
         "Time in seconds in which the content of one identifier must be there; 0 means no limit.",
         &S::contentSeconds},
        {"Limits", "PatchKiBPerSecond", T::number, "4",
         "Average speed in KiB a second below which the download of a patch is given up; 0 means no limit.",
         &S::patchKiBPerSecond},
        {"Limits", "PatchMinutes", T::number, "10",
         "Time in minutes that the download of a patch may take beyond what its bytes take at that speed.",
         &S::patchMinutes},
        {"Limits", "AheadMegabytes", T::number, "2048",
         "Size in MiB that archives may have together which a run fetches before it needs them; 0 means that "
         "it fetches none.",
         &S::aheadMegabytes},
        {"Log", "File", T::path, "/var/log/zelor/remediation.log", "The log file.", &S::logFile},
        {"Log", "Level", T::level, "debug", "What goes to the log file: debug, info or error.", &S::logLevel},
    };
    return table;
}

base::Check checkValue(SettingType type, const std::string& value) {
    if (type == SettingType::number) {
        const bool digits =
            std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; });
        if (!digits || value.size() > 9) return base::failure("is not a whole number of at most nine digits");
    }
    if (type == SettingType::flag && value != "true" && value != "false")
        return base::failure("is not true or false");
    if (type == SettingType::level) {
        const bool known = value == "debug" || value == "info" || value == "error";
        if (!known) return base::failure("is not debug, info or error");
    }
    if (type == SettingType::proxy) return checkProxy(value);
    if (type == SettingType::freshness) {
        const bool known = value == "off" || value == "warn" || value == "require";
        if (!known) return base::failure("is not off, warn or require");
    }
    if (type == SettingType::hosts) {
        const auto isBad = [](unsigned char c) {
            return std::isalnum(c) == 0 && std::strchr(" ,\t.-_:[]*", c) == nullptr;
        };
        if (std::any_of(value.begin(), value.end(), isBad))
            return base::failure("is not a list of host names and addresses");
    }
    if (type == SettingType::path) {
        if (value.front() != '/') return base::failure("is not an absolute path");
        if (base::hasControlCharacter(value)) return base::failure("is a path with a control character");
        if (boost::contains(value + "/", "/../")) return base::failure("is a path with \"..\"");
    }
    return {};
}

void storeValue(const SettingEntry& entry, const std::string& value, Settings& settings) {
    if (const auto* text = std::get_if<std::string Settings::*>(&entry.field)) {
        settings.*(*text) = entry.type == SettingType::path && !value.empty() ? belowRoot(value) : value;
    } else if (const auto* number = std::get_if<std::uint32_t Settings::*>(&entry.field)) {
        settings.*(*number) = static_cast<std::uint32_t>(std::stoul(value));
    } else if (const auto* flag = std::get_if<bool Settings::*>(&entry.field)) {
        settings.*(*flag) = value == "true";
    } else if (const auto* freshness = std::get_if<Freshness Settings::*>(&entry.field)) {
        settings.*(*freshness) = freshnessOf(value);
    } else {
        settings.*std::get<LogLevel Settings::*>(entry.field) = levelOf(value);
    }
}

bool isKnownKey(const std::string& section, const std::string& key) {
    const auto& table = settingsTable();
    return std::any_of(table.begin(), table.end(), [&](const SettingEntry& entry) {
        return section == entry.section && key == entry.key;
    });
}

std::string nearestKey(const std::string& section, const std::string& key) {
    if (key.size() > kNameBytesLimit) return "";
    std::string nearest;
    std::size_t least = 0;
    for (const SettingEntry& entry : settingsTable()) {
        const std::size_t distance = base::editDistance(key, entry.key);
        // Of two equally similar keys, the one in the given section is nearer.
        const std::size_t cost = 2 * distance + (section == entry.section ? 0 : 1);
        if (!isNear(key, entry.key, distance) || (!nearest.empty() && cost >= least)) continue;
        nearest = std::string("[") + entry.section + "] " + entry.key;
        least = cost;
    }
    return nearest;
}

}  // namespace zelor::agent
