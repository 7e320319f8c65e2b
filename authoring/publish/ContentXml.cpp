#include "authoring/publish/ContentXml.h"

#include <optional>
#include <pugixml.hpp>
#include <sstream>

#include "agent/content/ContentDocument.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

void setText(pugi::xml_node parent, const char* name, const std::string& text) {
    parent.append_child(name).text().set(text.c_str());
}

void setAttribute(pugi::xml_node node, const char* name, const std::string& value) {
    if (!value.empty()) node.append_attribute(name).set_value(value.c_str());
}

void setDigest(pugi::xml_node patch, const char* sha256, const char* length,
               const std::optional<agent::FileDigest>& digest) {
    if (!digest) return;
    setAttribute(patch, sha256, digest->sha256);
    setAttribute(patch, length, std::to_string(digest->length));
}

void appendCheck(pugi::xml_node eri, const EriCheck& check) {
    pugi::xml_node node = eri.append_child("check");
    setAttribute(node, "id", check.script);
    setAttribute(node, "receipt", check.receipt);
    setAttribute(node, "bundle", check.bundle);
    setAttribute(node, "version", check.version);
    setDigest(node, "sha256", "length", check.file);
    setDigest(node, "archiveSha256", "archiveLength", check.archive);
}

void appendEri(pugi::xml_node cre, const ContentEri& eri) {
    pugi::xml_node node = cre.append_child("eri");
    node.append_attribute("id").set_value(eri.id.c_str());
    node.append_attribute("reboot").set_value(eri.reboot ? "true" : "false");
    setText(node, "product", eri.product);
    setText(node, "impact", eri.impact);
    setText(node, "instructions", eri.instructions);
    pugi::xml_node patch = node.append_child("patch");
    patch.append_attribute("id").set_value(eri.patchId.c_str());
    patch.append_attribute("size").set_value(eri.size.c_str());
    patch.append_attribute("md5").set_value(eri.md5.c_str());
    setDigest(patch, "sha256", "length", eri.file);
    setDigest(patch, "archiveSha256", "archiveLength", eri.archive);
    setText(node, "silent", eri.silent);
    setText(node, "mskb", eri.mskb);
    if (eri.check) appendCheck(node, *eri.check);
}

/// Of content that agents can use.
std::optional<agent::FileDigest> readDigest(const pugi::xml_node& patch, const char* sha256,
                                            const char* length) {
    if (!patch.attribute(sha256)) return std::nullopt;
    return agent::FileDigest{base::trimmed(patch.attribute(sha256).value()),
                             patch.attribute(length).as_ullong()};
}

std::optional<EriCheck> readCheck(const pugi::xml_node& node) {
    if (!node) return std::nullopt;
    const auto text = [&](const char* name) { return base::trimmed(node.attribute(name).value()); };
    return EriCheck{text("id"),
                    text("receipt"),
                    text("bundle"),
                    text("version"),
                    readDigest(node, "sha256", "length"),
                    readDigest(node, "archiveSha256", "archiveLength")};
}

ContentEri readEri(const pugi::xml_node& node) {
    const pugi::xml_node patch = node.child("patch");
    ContentEri eri;
    eri.id = base::trimmed(node.attribute("id").value());
    eri.product = base::trimmed(node.child("product").text().get());
    eri.impact = base::trimmed(node.child("impact").text().get());
    eri.instructions = base::trimmed(node.child("instructions").text().get());
    eri.patchId = base::trimmed(patch.attribute("id").value());
    eri.size = base::trimmed(patch.attribute("size").value());
    eri.md5 = base::trimmed(patch.attribute("md5").value());
    eri.file = readDigest(patch, "sha256", "length");
    eri.archive = readDigest(patch, "archiveSha256", "archiveLength");
    eri.silent = base::trimmed(node.child("silent").text().get());
    eri.mskb = base::trimmed(node.child("mskb").text().get());
    eri.reboot = std::string(node.attribute("reboot").value()) == "true";
    eri.check = readCheck(node.child("check"));
    return eri;
}

void checkReboot(const pugi::xml_node& node, const std::string& place, Findings& findings) {
    const std::string reboot = node.attribute("reboot").value();
    if (reboot.empty() || reboot == "true" || reboot == "false") return;
    findings.push_back({Severity::warning, place + ", " + node.attribute("id").value(),
                        "reboot=\"" + reboot + "\" reads as " + (reboot == "1" ? "true" : "false"),
                        "write true or false"});
}

void checkEmptyMatch(const pugi::xml_node& cre, const char* name, const std::string& place,
                     Findings& findings) {
    if (!cre.attribute(name) || !base::trimmed(cre.attribute(name).value()).empty()) return;
    findings.push_back({Severity::warning, place + ", " + cre.attribute("id").value(),
                        std::string("an empty ") + name + " matches only requests without one",
                        "leave the attribute out to match any"});
}

}  // namespace

std::string contentXml(const ContentEntry& entry) {
    pugi::xml_document document;
    pugi::xml_node root = document.append_child("remediation");
    root.append_attribute("identifier").set_value(entry.identifier.c_str());
    for (const ContentCre& cre : entry.cres) {
        pugi::xml_node node = root.append_child("cre");
        node.append_attribute("id").set_value(cre.id.c_str());
        setAttribute(node, "platform", cre.platform);
        setAttribute(node, "product", cre.product);
        for (const ContentEri& eri : cre.eris)
            appendEri(node, eri);
    }
    std::ostringstream out;
    document.save(out, "  ", pugi::format_default, pugi::encoding_utf8);
    return out.str();
}

ContentEntry readContentXml(const std::string& xml, const std::string& place, const std::string& identifier,
                            Findings& findings) {
    ContentEntry entry;
    try {
        agent::ContentDocument::parse(xml, identifier);
    } catch (const std::exception& e) {
        findings.push_back({Severity::error, place, std::string("agents cannot use the content: ") + e.what(),
                            "correct it and publish the entry again"});
        return entry;
    }
    entry.place = place;
    entry.identifier = identifier;
    pugi::xml_document document;
    document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
    for (const pugi::xml_node& node : document.child("remediation").children("cre")) {
        checkEmptyMatch(node, "platform", place, findings);
        checkEmptyMatch(node, "product", place, findings);
        ContentCre cre{base::trimmed(node.attribute("id").value()),
                       base::trimmed(node.attribute("platform").value()),
                       base::trimmed(node.attribute("product").value()),
                       {}};
        for (const pugi::xml_node& eri : node.children("eri")) {
            checkReboot(eri, place, findings);
            cre.eris.push_back(readEri(eri));
        }
        entry.cres.push_back(std::move(cre));
    }
    return entry;
}

}  // namespace zelor::authoring
