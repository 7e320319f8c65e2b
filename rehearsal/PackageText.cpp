#include "rehearsal/PackageText.h"

#include <algorithm>
#include <pugixml.hpp>
#include <sstream>
#include <stdexcept>

#include "agent/archive/ArchivePolicy.h"

namespace zelor::rehearsal {

namespace {

bool isRestart(const std::string& action) {
    return action == "restart" || action == "RequireRestart" || action == "shutdown" ||
           action == "RequireShutdown";
}

pugi::xml_document parsed(const std::string& xml, const char* what) {
    pugi::xml_document document;
    const auto result = document.load_buffer(xml.data(), xml.size());
    if (!result) throw std::runtime_error(std::string(what) + " is malformed: " + result.description());
    return document;
}

std::string written(const pugi::xml_document& document) {
    std::ostringstream out;
    document.save(out, "    ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

std::string scriptName(const pugi::xml_node& node) {
    const auto components = agent::pathComponents(node.attribute("file").value());
    if (!node) return "";
    if (components.size() != 1 || components.front() == "..") {
        throw std::runtime_error("PackageInfo names a script that is not in the top directory");
    }
    return components.front();
}

void addScript(pugi::xml_node parent, const char* kind, const std::string& file) {
    if (!file.empty()) parent.append_child(kind).append_attribute("file").set_value(("./" + file).c_str());
}

}  // namespace

PackageInfo parsePackageInfo(const std::string& xml) {
    const pugi::xml_document document = parsed(xml, "PackageInfo");
    const pugi::xml_node node = document.child("pkg-info");
    PackageInfo info;
    info.id = node.attribute("identifier").value();
    if (info.id.empty()) throw std::runtime_error("PackageInfo has no identifier");
    info.version = node.attribute("version").value();
    info.installLocation = node.attribute("install-location").as_string("/");
    const auto location = agent::pathComponents(info.installLocation);
    if (std::find(location.begin(), location.end(), "..") != location.end()) {
        throw std::runtime_error("PackageInfo has an install location with \"..\"");
    }
    info.restart = isRestart(node.attribute("postinstall-action").value());
    const pugi::xml_node scripts = node.child("scripts");
    info.preinstall = scriptName(scripts.child("preinstall"));
    info.postinstall = scriptName(scripts.child("postinstall"));
    return info;
}

std::string packageInfoXml(const PackageInfo& info, std::uint64_t files, std::uint64_t kilobytes) {
    pugi::xml_document document;
    document.append_child(pugi::node_declaration).append_attribute("version") = "1.0";
    document.first_child().append_attribute("encoding") = "utf-8";
    pugi::xml_node node = document.append_child("pkg-info");
    node.append_attribute("format-version") = "2";
    node.append_attribute("identifier") = info.id.c_str();
    node.append_attribute("version") = info.version.c_str();
    node.append_attribute("install-location") = info.installLocation.c_str();
    node.append_attribute("auth") = "root";
    if (info.restart) node.append_attribute("postinstall-action") = "restart";
    pugi::xml_node payload = node.append_child("payload");
    payload.append_attribute("numberOfFiles").set_value(std::to_string(files).c_str());
    payload.append_attribute("installKBytes").set_value(std::to_string(kilobytes).c_str());
    if (!info.preinstall.empty() || !info.postinstall.empty()) {
        pugi::xml_node scripts = node.append_child("scripts");
        addScript(scripts, "preinstall", info.preinstall);
        addScript(scripts, "postinstall", info.postinstall);
    }
    return written(document);
}

Distribution parseDistribution(const std::string& xml) {
    const pugi::xml_document document = parsed(xml, "Distribution");
    pugi::xml_node node = document.child("installer-gui-script");
    if (!node) node = document.child("installer-script");
    if (!node) throw std::runtime_error("Distribution describes no product");
    Distribution distribution;
    distribution.title = node.child_value("title");
    for (const pugi::xml_node& reference : node.children("pkg-ref")) {
        distribution.restart |= isRestart(reference.attribute("onConclusion").value());
        const std::string text = reference.child_value();
        const auto at = text.find_first_not_of(" \t\r\n#");
        if (at == std::string::npos) continue;
        distribution.components.push_back(text.substr(at, text.find_last_not_of(" \t\r\n") + 1 - at));
    }
    return distribution;
}

std::string distributionXml(const std::string& title, const std::string& component, const PackageInfo& info) {
    pugi::xml_document document;
    document.append_child(pugi::node_declaration).append_attribute("version") = "1.0";
    document.first_child().append_attribute("encoding") = "utf-8";
    pugi::xml_node node = document.append_child("installer-gui-script");
    node.append_attribute("minSpecVersion") = "1";
    node.append_child("title").text() = title.c_str();
    node.append_child("options").append_attribute("customize") = "never";
    pugi::xml_node line = node.append_child("choices-outline").append_child("line");
    line.append_attribute("choice") = "default";
    pugi::xml_node choice = node.append_child("choice");
    choice.append_attribute("id") = "default";
    choice.append_attribute("title") = title.c_str();
    choice.append_child("pkg-ref").append_attribute("id") = info.id.c_str();
    pugi::xml_node reference = node.append_child("pkg-ref");
    reference.append_attribute("id") = info.id.c_str();
    reference.append_attribute("version") = info.version.c_str();
    if (info.restart) reference.append_attribute("onConclusion") = "RequireRestart";
    reference.text() = ("#" + component).c_str();
    return written(document);
}

}  // namespace zelor::rehearsal
