#include "authoring/metadata/RootChanges.h"

#include <set>

#include "authoring/metadata/MetadataKeys.h"

namespace zelor::authoring {

namespace {

using Ids = std::set<std::string>;

std::string missingFrom(const Ids& ids, const Ids& others, const trust::Json& content, const char* what) {
    std::string text;
    for (const std::string& id : ids) {
        if (others.count(id) == 0) text += std::string(", ") + what + ' ' + keyLabel(content, id);
    }
    return text;
}

}  // namespace

std::string pendingRootFile(const std::string& repository) {
    return repository + "/.zelor-content-root.json";
}

std::string rootChanges(const trust::Json& before, const trust::Json& after) {
    std::string lines;
    for (const std::string& role : roleNames()) {
        const trust::Json &old = before.at("roles").at(role), &next = after.at("roles").at(role);
        const Ids oldIds = old.at("keyids"), nextIds = next.at("keyids");
        std::string text =
            missingFrom(nextIds, oldIds, after, "adds") + missingFrom(oldIds, nextIds, before, "removes");
        if (old.at("threshold") != next.at("threshold"))
            text +=
                ", " + next.at("threshold").dump() + " must sign instead of " + old.at("threshold").dump();
        if (!text.empty()) lines += "  " + role + ": " + text.substr(2) + '\n';
    }
    return lines.empty() ? "  no key changes: the root is renewed\n" : lines;
}

}  // namespace zelor::authoring
