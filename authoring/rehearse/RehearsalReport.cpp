#include "authoring/rehearse/RehearsalReport.h"

#include <boost/filesystem.hpp>
#include <fstream>
#include <list>
#include <optional>
#include <vector>

#include "authoring/Finding.h"
#include "authoring/publish/PublishState.h"
#include "base/PrintableText.h"
#include "base/Strings.h"
#include "remediation/fetch/PatchName.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr const char* kAgentDirectories[] = {"etc/zelor", "opt/zelor", "var/log/zelor", "var/zelor"};

bool isAgentDirectory(const std::string& path) {
    for (const char* directory : kAgentDirectories) {
        if (path == directory) return true;
    }
    return false;
}

/// What follows the "||": system updates are chosen by it, otherwise it is only shown.
std::string packageName(const ContentEntry& entry, const ContentCre& cre) {
    std::string product = cre.product;
    for (const ContentEri& eri : cre.eris) {
        if (!isOsRemediation(eri)) continue;
        product = eri.product;
        if (base::hasBeginning(product, "cpe:/o")) return "Apple Mac OS X";
    }
    std::vector<std::string> parts = {""};
    for (const char letter : product) {
        if (letter == ':')
            parts.emplace_back();
        else
            parts.back() += letter == '_' ? ' ' : letter;
    }
    constexpr std::size_t kVendorAt = 2;
    if (parts.size() <= kVendorAt + 1) {
        const auto name =
            cre.eris.empty() ? std::nullopt : remediation::splitAtLastDot(cre.eris.front().patchId);
        return name ? name->stem : entry.identifier;
    }
    return parts[kVendorAt] + ' ' + parts[kVendorAt + 1];
}

}  // namespace

std::map<std::string, std::string> requestsFor(const ContentEntry& entry) {
    std::map<std::string, std::string> requests;
    for (const ContentCre& cre : entry.cres) {
        std::string key = cre.platform.empty() ? "cpe:/o:apple:mac_os_x" : cre.platform;
        if (!cre.product.empty() && cre.product != key) key += ',' + cre.product;
        requests[key + "||" + packageName(entry, cre)] = entry.identifier;
    }
    return requests;
}

DiskState diskState(const std::string& root) {
    DiskState state;
    boost::system::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; it != end; it.increment(error)) {
        const std::string path = it->path().string().substr(root.size() + 1);
        const fs::file_type type = it->symlink_status().type();
        if (type == fs::directory_file) {
            if (isAgentDirectory(path)) it.disable_recursion_pending();
        } else {
            state[path] = type == fs::symlink_file ? "-> " + fs::read_symlink(it->path(), error).string()
                                                   : fileStamp(it->path().string());
        }
    }
    return state;
}

std::string diskChanges(const DiskState& before, const DiskState& after, std::size_t limit) {
    std::string text;
    std::size_t count = 0;
    const auto add = [&](const char* what, const std::string& path) {
        if (++count <= limit) text += std::string("  ") + what + " /" + base::printable(path) + '\n';
    };
    for (const auto& [path, stamp] : after) {
        const auto old = before.find(path);
        if (old == before.end())
            add("new     ", path);
        else if (old->second != stamp)
            add("changed ", path);
    }
    for (const auto& [path, stamp] : before) {
        if (after.count(path) == 0) add("removed ", path);
    }
    if (count > limit) text += "  and " + std::to_string(count - limit) + " more\n";
    return text;
}

std::string indentedTail(const std::string& file, std::size_t lines) {
    std::ifstream in(file);
    std::list<std::string> last;
    for (std::string line; std::getline(in, line);) {
        last.push_back(line);
        if (last.size() > lines) last.pop_front();
    }
    std::string text;
    for (const std::string& line : last)
        text += "  " + base::printable(line) + '\n';
    return text;
}

}  // namespace zelor::authoring
