#include "agent/archive/ArchivePolicy.h"

#include <algorithm>
#include <limits>

#include "base/Strings.h"

namespace zelor::agent {

std::vector<std::string> pathComponents(const std::string& path) {
    std::vector<std::string> components;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        const std::string component = path.substr(begin, end - begin);
        if (!component.empty() && component != ".") components.push_back(component);
        begin = end + 1;
    }
    return components;
}

base::Check checkEntryName(const std::string& name, const ExtractionLimits& limits) {
    if (name.empty()) return base::failure("has no name");
    if (name.size() > limits.nameLength) return base::failure("has a name that is too long");
    if (name.front() == '/') return base::failure("has an absolute path");
    const auto components = pathComponents(name);
    if (std::find(components.begin(), components.end(), "..") != components.end()) {
        return base::failure("has \"..\" in its path");
    }
    if (components.size() > limits.depth) return base::failure("lies too deep in directories");
    return {};
}

base::Check checkLinkTarget(const std::vector<std::string>& linkPath, const std::string& target,
                            const ExtractionLimits& limits) {
    if (target.empty()) return base::failure("is a symbolic link to nothing");
    if (target.size() > limits.nameLength)
        return base::failure("is a symbolic link with a target that is too long");
    if (target.front() == '/') return base::failure("is a symbolic link to an absolute path");
    const auto components = pathComponents(target);
    const auto isUp = [](const std::string& component) { return component == ".."; };
    const auto descent = std::find_if_not(components.begin(), components.end(), isUp);
    if (static_cast<std::size_t>(descent - components.begin()) >= std::max<std::size_t>(linkPath.size(), 1)) {
        return base::failure("is a symbolic link that leads out of the destination");
    }
    if (std::any_of(descent, components.end(), isUp)) {
        return base::failure("is a symbolic link that climbs (\"..\") after it descended");
    }
    return {};
}

bool EntryNames::CaseBlind::operator()(const Key& one, const Key& other) const {
    if (one.first != other.first) return one.first < other.first;
    const auto folded = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c; };
    return std::lexicographical_compare(one.second.begin(), one.second.end(), other.second.begin(),
                                        other.second.end(),
                                        [&](char a, char b) { return folded(a) < folded(b); });
}

base::Check EntryNames::add(const std::vector<std::string>& components) {
    std::size_t parent = 0;
    for (std::size_t i = 0; i < components.size(); ++i) {
        const bool isEntry = i + 1 == components.size();
        const auto [known, isNew] =
            nodes_.try_emplace({parent, components[i]}, Node{nodes_.size() + 1, isEntry});
        Node& node = known->second;
        if (known->first.second != components[i]) return base::failure("differs from another only in case");
        if (isEntry && !isNew && node.isEntry) return base::failure("is there twice");
        node.isEntry = node.isEntry || isEntry;
        parent = node.number;
    }
    return {};
}

Allowance unpackedAllowance(std::uint64_t archiveBytes, std::uint64_t freeBytes,
                            const ExtractionLimits& limits) {
    Allowance allowance{limits.unpackedBytes, "the limit on unpacked archives"};
    const std::uint64_t available = freeBytes > limits.freeMargin ? freeBytes - limits.freeMargin : 0;
    if (available < allowance.bytes) allowance = {available, "the room on the destination's file system"};
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    const bool wide = limits.ratio != 0 && archiveBytes > (kMost - limits.ratioAllowance) / limits.ratio;
    const std::uint64_t byRatio = wide ? kMost : archiveBytes * limits.ratio + limits.ratioAllowance;
    if (byRatio < allowance.bytes) allowance = {byRatio, "what an archive of its size plausibly holds"};
    return allowance;
}

}  // namespace zelor::agent
