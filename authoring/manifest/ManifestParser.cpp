#include "authoring/manifest/Manifest.h"
#include "authoring/manifest/ManifestFields.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

using Json = nlohmann::json;

const std::set<std::string> kEriFields = {"product", "impact", "instructions", "file",
                                          "patchId", "reboot", "silent",       "mskb",
                                          "size",    "md5",    "omitArchive",  "check"};

std::set<std::string> joined(std::set<std::string> one, const std::set<std::string>& other) {
    one.insert(other.begin(), other.end());
    return one;
}

std::string lastName(std::string path) {
    path.erase(path.find_last_not_of('/') + 1);
    return path.substr(path.rfind('/') + 1);
}

std::string withoutPrefix(const std::string& text, const std::string& prefix) {
    return base::hasBeginning(text, prefix) ? text.substr(prefix.size()) : text;
}

class ManifestParser {
  public:
    ManifestParser(std::string directory, Findings& findings)
        : directory_(std::move(directory)), findings_(findings) {}

    void addEntry(const Json& object, const std::string& place) {
        ManifestFields fields(object, place, findings_);
        ContentEntry entry;
        entry.identifier = fields.text("identifier");
        entry.place = entry.identifier.empty() ? place : place + " (" + entry.identifier + ")";
        ManifestFields named(object, entry.place, findings_);
        if (named.has("cres")) {
            named.refuseOthers({"identifier", "cres"});
            for (const Json& cre : named.list("cres"))
                addCre(entry, cre, true);
        } else {
            addCre(entry, object, false);
        }
        result_.entries.push_back(std::move(entry));
    }

    void markLastUnread() { result_.unread.insert(result_.entries.back().place); }
    Manifest take() { return std::move(result_); }

  private:
    /// `own`: the object is a cre; otherwise an entry that is written as its only cre.
    void addCre(ContentEntry& entry, const Json& object, bool own) {
        const std::string number = std::to_string(entry.cres.size() + 1);
        ManifestFields fields(object, entry.place + (own ? ", cre " + number : ""), findings_);
        ContentCre cre;
        cre.id = fields.text("id");
        if (cre.id.empty()) cre.id = "CRE-" + entry.identifier + (number == "1" ? "" : "-" + number);
        cre.platform = fields.text("platform");
        cre.product = fields.text("product");
        std::set<std::string> known = {"id", "platform", "product"};
        if (!own) known.insert("identifier");
        if (fields.has("eris")) {
            fields.refuseOthers(joined(known, {"eris"}));
            for (const Json& eri : fields.list("eris")) {
                const std::string eriNumber = std::to_string(cre.eris.size() + 1);
                ManifestFields eriObject(eri, fields.place() + ", eri " + eriNumber, findings_);
                eriObject.refuseOthers(joined(kEriFields, {"id"}));
                addEri(entry, cre, eriObject, eriObject.text("id"));
            }
        } else {
            fields.refuseOthers(
                joined(joined(known, kEriFields),
                       own ? std::set<std::string>{"eris"} : std::set<std::string>{"cres", "eris"}));
            addEri(entry, cre, fields, "");
        }
        entry.cres.push_back(std::move(cre));
    }

    void addEri(const ContentEntry& entry, ContentCre& cre, ManifestFields& fields, const std::string& id) {
        ContentEri eri;
        eri.id = id.empty()
                     ? "ERI-" + withoutPrefix(cre.id, "CRE-") + '-' + std::to_string(cre.eris.size() + 1)
                     : id;
        eri.product = fields.text("product");
        if (eri.product.empty()) eri.product = cre.product.empty() ? cre.platform : cre.product;
        eri.impact = fields.text("impact");
        eri.instructions = fields.text("instructions");
        eri.silent = fields.text("silent");
        eri.mskb = fields.text("mskb");
        eri.reboot = fields.flag("reboot");
        eri.patchId = addPatch(entry.identifier, fields);
        eri.check = readCheck(entry.identifier, fields);
        cre.eris.push_back(std::move(eri));
    }

    std::string addPatch(const std::string& identifier, ManifestFields& fields) {
        ManifestPatch patch;
        patch.place = fields.place();
        patch.identifier = identifier;
        patch.file = fields.text("file");
        patch.patchId = fields.text("patchId");
        patch.size = fields.text("size");
        patch.md5 = fields.text("md5");
        patch.omitArchive = fields.flag("omitArchive");
        if (patch.patchId.empty()) patch.patchId = lastName(patch.file);
        if (patch.file.empty() && !patch.patchId.empty() && !patch.omitArchive) {
            fields.report("field \"patchId\" names \"" + patch.patchId + "\", but there is no field \"file\"",
                          "name the file to publish, or write \"omitArchive\": true");
        }
        patch.file = placed(patch.file);
        if (patch.patchId.empty()) return "";
        result_.patches.push_back(patch);
        return patch.patchId;
    }

    /// Of a file, its script is published; an object names what the system itself knows.
    std::optional<EriCheck> readCheck(const std::string& identifier, ManifestFields& fields) {
        if (!fields.has("check")) return std::nullopt;
        EriCheck check;
        if (!fields.isObject("check")) {
            const std::string file = fields.text("check");
            if (file.empty()) return std::nullopt;
            check.script = lastName(file);
            ManifestPatch script;
            script.place = fields.place() + ", check";
            script.identifier = identifier;
            script.patchId = check.script;
            script.file = placed(file);
            script.check = true;
            result_.patches.push_back(script);
            return check;
        }
        const Json& object = fields.object("check");
        ManifestFields inner(object, fields.place() + ", check", findings_);
        inner.refuseOthers({"receipt", "bundle", "version"});
        check.receipt = inner.text("receipt");
        check.bundle = inner.text("bundle");
        check.version = inner.text("version");
        if (check.receipt.empty() == check.bundle.empty()) {
            inner.report("it names not one of a receipt and a bundle",
                         R"(write {"receipt": "com.example.pkg"} or {"bundle": "/Applications/Editor.app"})");
        }
        return check;
    }

    /// A relative name is below the manifest's directory.
    std::string placed(std::string file) const {
        file.erase(file.find_last_not_of('/') + 1);
        return file.empty() || file[0] == '/' ? file : directory_ + '/' + file;
    }

    std::string directory_;
    Findings& findings_;
    Manifest result_;
};

/// The parser's message without its internals: "at line 1, column 3: unexpected ','; expected string
/// literal".
std::string plainJsonError(const std::string& message) {
    const std::string prefix = "parse error ";
    std::string text = message.substr(message.find("] ") + 2);
    if (!base::hasBeginning(text, prefix)) return ": " + text;
    text.erase(0, prefix.size());
    const auto where = text.find(": "), what = text.find(" - ");
    if (where != std::string::npos && what != std::string::npos) text.erase(where + 2, what + 1 - where);
    return ' ' + text;
}

bool anyErrorSince(const Findings& findings, std::size_t begin) {
    return anyError({findings.begin() + static_cast<std::ptrdiff_t>(begin), findings.end()});
}

}  // namespace

Manifest parseManifest(const std::string& json, const std::string& directory, const std::string& place,
                       Findings& findings) {
    Json document;
    try {
        document = Json::parse(json);
    } catch (const Json::exception& e) {
        findings.push_back(
            {Severity::error, place, "it is not JSON" + plainJsonError(e.what()), "correct the text there"});
        return {};
    }
    const Json& list = document.is_object() && document.contains("entries") ? document["entries"] : document;
    if (!list.is_array()) {
        findings.push_back({Severity::error, place, "it is not a list of entries",
                            R"(write it as [{"identifier": "CVE-...", ...}, ...])"});
        return {};
    }
    ManifestParser parser(directory, findings);
    std::size_t number = 0;
    for (const Json& entry : list) {
        const std::string entryPlace = place + ": entry " + std::to_string(++number);
        if (entry.is_object()) {
            const std::size_t before = findings.size();
            parser.addEntry(entry, entryPlace);
            if (anyErrorSince(findings, before)) parser.markLastUnread();
        } else {
            findings.push_back({Severity::error, entryPlace, "it is not an object", "write it as {...}"});
        }
    }
    return parser.take();
}

}  // namespace zelor::authoring
