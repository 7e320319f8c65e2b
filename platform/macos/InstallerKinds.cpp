#include "platform/macos/InstallerKinds.h"

#include <algorithm>
#include <array>

#include "base/Strings.h"
#include "platform/macos/InstallCommands.h"

namespace zelor::platform {

namespace {

constexpr std::array kInstallerKinds = {
    InstallerKind{"app", ".app", InstallMethod::copyBundle, false},
    InstallerKind{"pkg", ".pkg", InstallMethod::installPackage, true},
    InstallerKind{"dmg", ".dmg", InstallMethod::mountImage, true},
};

template <class Condition>
const InstallerKind* firstKind(Condition condition) {
    const auto* const found = std::find_if(kInstallerKinds.begin(), kInstallerKinds.end(), condition);
    return found == kInstallerKinds.end() ? nullptr : found;
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (i != 0) text += i + 1 == words.size() ? " or " : ", ";
        text += words[i];
    }
    return text;
}

template <class Condition>
std::string markersText(Condition condition) {
    std::vector<std::string> markers;
    for (const InstallerKind& kind : kInstallerKinds)
        if (condition(kind)) markers.emplace_back(kind.marker);
    return joined(markers);
}

std::string bundleOnImage(const Installation& installation) {
    if (!installation.usesBundleInstaller) return "copied to " + installation.applications;
    if (installation.silentOption.empty()) return "left alone";
    return "run as " + silentInstallerCommand("BUNDLE", installation.silentOption);
}

}  // namespace

const InstallerKind* installerKindOf(const std::string& path) {
    return firstKind([&](const InstallerKind& kind) { return base::contains(path, kind.marker); });
}

bool isInstalledBy(InstallMethod method, const std::string& path) {
    const InstallerKind* const kind = installerKindOf(path);
    return kind != nullptr && kind->method == method;
}

const InstallerKind* installerKindNamed(const std::string& name) {
    return firstKind([&](const InstallerKind& kind) { return name == kind.name; });
}

const InstallerKind* kindOnImage(const std::string& fileName) {
    return firstKind([&](const InstallerKind& kind) {
        return kind.method != InstallMethod::mountImage && base::hasEnding(fileName, kind.marker);
    });
}

std::string installableText() {
    return markersText([](const InstallerKind&) { return true; });
}

std::string installableOnImageText() {
    return markersText([](const InstallerKind& kind) { return kind.method != InstallMethod::mountImage; });
}

std::string installableFileText() {
    return markersText([](const InstallerKind& kind) { return kind.method != InstallMethod::copyBundle; });
}

InstallerSteps installerSteps(const InstallerKind& kind, const Installation& installation) {
    switch (kind.method) {
        case InstallMethod::copyBundle:
            return {{}, "copies what the bundle holds to " + installation.applications, false};
        case InstallMethod::installPackage:
            return {{installPackageCommand(installation.path)}, "", false};
        case InstallMethod::mountImage:
            break;
    }
    const std::string detach = detachCommand(installation.mountPoint);
    return {{detach, attachCommand(installation.mountPoint, installation.path), detach},
            "while it is attached, its first " + installableOnImageText() +
                ": a package is installed, a bundle is " + bundleOnImage(installation),
            true};
}

}  // namespace zelor::platform
