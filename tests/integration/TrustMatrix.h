#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include "agent/trust/BundleManifest.h"
#include "base/CommandRunner.h"
#include "tests/integration/IntegrationFixture.h"
#include "tests/integration/Snapshot.h"

namespace zelor::test {

namespace fs = boost::filesystem;

/// What an archive holds under the patch's name: one file (with an empty name) or a bundle's files.
using Payload = std::vector<std::pair<std::string, std::string>>;

struct Kind {
    std::string name, extension, identifier;  ///< "script", ".sh", "CCE-"
    Payload good, evil;
    std::string signedText;  ///< what the good payload's signature is made over
    std::string mark;        ///< there once the good payload was run or installed
};

struct Cell {
    const Kind* kind;
    std::string archiveState, signatureState, cause;
    std::string stem() const { return kind->name + "-" + archiveState + "-" + signatureState; }
    std::string key() const { return stem() + "||"; }
    std::string identifier() const { return kind->identifier + stem(); }
    bool accepted() const { return cause.empty(); }
};

/// A state and the text that the log must have for it; "" when this state does not refuse anything.
inline const std::vector<std::pair<std::string, std::string>> archiveStates = {
    {"good", ""},
    {"truncated", "damaged or no zip archive"},
    {"corrupt", "is damaged"},
    {"bomb", "unpacks to more than"},
    {"traversal", "has \"..\" in its path"},
    {"absolute", "has an absolute path"},
    {"linkout", "is a symbolic link to an absolute path"},
    {"device", "is a device"},
    {"setuid", ""},
    {"duplicate", "is there twice"},
    {"swapped", ""},
    {"casetwin", "differs from another only in case"},
};
inline const std::vector<std::pair<std::string, std::string>> signatureStates = {
    {"good", ""},
    {"missing", ".sig: No such file"},
    {"wrongkey", "does not match"},
    {"anothers", "does not match"},
    {"truncated", "does not match"},
    {"empty", "the signature is empty"},
    {"huge", "larger than the 16384 bytes"},
};

inline std::uint32_t numberAt(const std::string& bytes, std::size_t at, int size) {
    std::uint32_t number = 0;
    for (int i = size; i-- > 0;)
        number = number << 8U | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return number;
}

inline void setNumber(std::string& bytes, std::size_t at, int size, std::uint32_t number) {
    for (int i = 0; i < size; ++i, number >>= 8U)
        bytes.at(at + static_cast<std::size_t>(i)) = static_cast<char>(number & 0xffU);
}

/// One zip archive with the entries of two.
inline std::string joined(const std::string& one, const std::string& other) {
    constexpr std::size_t endSize = 22, countAt = 10, sizeAt = 12, offsetAt = 16, localAt = 42;
    const auto parts = [&](const std::string& zip) {
        const std::size_t offset = numberAt(zip, zip.size() - endSize + offsetAt, 4);
        return std::pair{zip.substr(0, offset), zip.substr(offset, zip.size() - endSize - offset)};
    };
    const auto [oneFiles, oneDirectory] = parts(one);
    auto [otherFiles, otherDirectory] = parts(other);
    for (std::size_t at = 0; at < otherDirectory.size();) {
        const auto local = numberAt(otherDirectory, at + localAt, 4);
        setNumber(otherDirectory, at + localAt, 4, local + static_cast<std::uint32_t>(oneFiles.size()));
        at += 46 + numberAt(otherDirectory, at + 28, 2) + numberAt(otherDirectory, at + 30, 2) +
              numberAt(otherDirectory, at + 32, 2);
    }
    std::string end = one.substr(one.size() - endSize);
    const auto count = numberAt(end, countAt, 2) + numberAt(other, other.size() - endSize + countAt, 2);
    setNumber(end, countAt - 2, 2, count);
    setNumber(end, countAt, 2, count);
    setNumber(end, sizeAt, 4, static_cast<std::uint32_t>(oneDirectory.size() + otherDirectory.size()));
    setNumber(end, offsetAt, 4, static_cast<std::uint32_t>(oneFiles.size() + otherFiles.size()));
    return oneFiles + otherFiles + oneDirectory + otherDirectory + end;
}

/// The last entry as another type of file.
inline std::string withLastMode(const std::string& zip, unsigned mode) {
    const auto at = zip.rfind("PK\x01\x02");
    return zip.substr(0, at) + zelor::test::withMode(zip.substr(at), mode);
}

inline std::string withFlippedData(std::string zip) {
    const std::size_t data = 30 + numberAt(zip, 26, 2) + numberAt(zip, 28, 2);
    zip.at(data + 2) = static_cast<char>(zip.at(data + 2) ^ 0x55);
    return zip;
}

inline std::string upperCased(std::string text) {
    for (char& c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

/// The parameter: whether archives come before they are asked for.
class TrustMatrix : public testing::TestWithParam<bool> {
  protected:
    TrustMatrix() {
        fixture.early = GetParam();
        mac({"init", fixture.dir / "tools", "--root", fixture.dir.path().string(), "--os", "10.10.5"});
        setenv("PATH", (fixture.dir / "tools:" + getenv("PATH")).c_str(), 1);
        const std::string applications = fixture.dir / "Applications/";
        kinds.push_back({"script",
                         ".sh",
                         "CCE-",
                         {{"", "#!/bin/bash\ntouch '" + fixture.dir / "ran" + "'\n"}},
                         {{"", "#!/bin/bash\ntouch '" + fixture.dir / "evil" + "'\n"}},
                         "",
                         fixture.dir / "ran"});
        kinds.push_back({"package", ".pkg", "CVE-", package("Good"), package("Evil"), "",
                         applications + "GoodPackage/file"});
        kinds.push_back({"image", ".dmg", "CVE-", image("Good"), image("Evil"), "",
                         applications + "GoodImage.app/Contents/file"});
        kinds.push_back({"bundle", ".app", "CVE-", bundle("Good"), bundle("Evil"), "",
                         applications + "Contents/MacOS/Good"});
        for (Kind& kind : kinds)
            kind.signedText = kind.name == "bundle" ? manifestOf(kind.good) : kind.good.front().second;
    }

    static void mac(std::vector<std::string> words) {
        words.insert(words.begin(), ZELOR_REHEARSAL_PROGRAM);
        const auto result = zelor::base::runCommand(words, true, std::chrono::seconds(0));
        ASSERT_EQ(result.status, 0) << result.output;
    }
    Payload package(const std::string& name) {
        const std::string directory = scratch / (name + "Package"), path = scratch / (name + ".pkg");
        writeFile(directory + "/" + name + "Package/file", name);
        mac({"build-pkg", "--id", "com.example." + name, "--version", "1", "--install-location",
             "/Applications", directory, path});
        return {{"", readFile(path)}};
    }
    Payload image(const std::string& name) {
        const std::string directory = scratch / (name + "Image"), path = scratch / (name + ".dmg");
        writeFile(directory + "/" + name + "Image.app/Contents/file", name);
        mac({"build-dmg", "--volume", name, directory, path});
        return {{"", readFile(path)}};
    }
    static Payload bundle(const std::string& name) {
        return {{"/Contents/Info.plist", name}, {"/Contents/MacOS/" + name, "binary"}};
    }
    std::string manifestOf(const Payload& payload) {
        const std::string directory = scratch / "manifest.app";
        for (const auto& [name, bytes] : payload) {
            writeFile(directory + name, bytes);
            chmod((directory + name).c_str(), 0755);
        }
        for (const char* name : {"", "/Contents", "/Contents/MacOS"})
            chmod((directory + name).c_str(), 0755);
        return zelor::agent::bundleManifest(directory);
    }

    static void add(ArchiveBuilder& zip, const std::string& name, const Payload& payload, mode_t mode) {
        for (const auto& [inner, bytes] : payload)
            zip.file(name + inner, bytes, mode);
    }

    std::string signature(const Cell& cell) {
        const std::string good = fixture.key.sign(cell.kind->signedText);
        if (cell.signatureState == "wrongkey") return otherKey.sign(cell.kind->signedText);
        if (cell.signatureState == "anothers") return fixture.key.sign("another file");
        if (cell.signatureState == "truncated") return good.substr(0, good.size() - 1);
        if (cell.signatureState == "empty") return "";
        if (cell.signatureState == "huge") return good + std::string(16384, '\0');
        return good;
    }

    std::string archive(const Cell& cell) {
        const std::string& state = cell.archiveState;
        const std::string name = cell.stem() + cell.kind->extension;
        ArchiveBuilder zip;
        add(zip, name, state == "swapped" ? cell.kind->evil : cell.kind->good,
            state == "setuid" ? 06755 : 0755);
        if (cell.signatureState != "missing") zip.file(cell.stem() + ".sig", signature(cell));
        if (state == "traversal") zip.file("../escaped-" + cell.stem(), "x");
        if (state == "absolute") zip.file(fixture.dir / ("escaped-" + cell.stem()), "x");
        if (state == "linkout") zip.link("out-" + cell.stem(), fixture.dir / "var");
        if (state == "device") zip.file("device-" + cell.stem(), "");
        if (state == "duplicate") add(zip, name, cell.kind->evil, 0755);
        if (state == "duplicate") add(zip, name, cell.kind->good, 0755);
        if (state == "casetwin") add(zip, upperCased(name), cell.kind->evil, 0755);
        const std::string bytes = zip.finish();
        if (state == "truncated") return bytes.substr(0, bytes.size() * 2 / 3);
        if (state == "corrupt") return withFlippedData(bytes);
        if (state == "bomb") return joined(bytes, bomb);
        if (state == "device") return withLastMode(bytes, S_IFCHR | 0666);
        return bytes;
    }

    std::vector<Cell> cells() const {
        std::vector<Cell> all;
        for (const Kind& kind : kinds) {
            for (const auto& [archiveState, archiveCause] : archiveStates) {
                for (const auto& [signatureState, signatureCause] : signatureStates) {
                    std::string cause = archiveCause.empty() ? signatureCause : archiveCause;
                    if (cause.empty() && archiveState == "swapped") cause = "does not match";
                    all.push_back({&kind, archiveState, signatureState, cause});
                }
            }
        }
        return all;
    }

    IntegrationFixture::Map run(const std::vector<Cell>& cells) {
        std::map<std::string, std::string> requests;
        for (const Cell& cell : cells) {
            fixture.addContent(cell.identifier(), cell.stem() + cell.kind->extension);
            fixture.addArchive(cell.stem(), archive(cell));
            requests[cell.key()] = cell.identifier();
        }
        before = snapshotOf(fixture.dir.path(), own);
        return fixture.run(requests);
    }

    /// True when an error line names both.
    static bool named(const std::vector<std::string>& errors, const Cell& cell) {
        return std::any_of(errors.begin(), errors.end(), [&](const std::string& line) {
            return line.find(cell.stem() + ".") != std::string::npos &&
                   line.find(cell.cause) != std::string::npos;
        });
    }

    std::vector<std::string> errorLines() const {
        std::ifstream log(fixture.dir / "var/log/zelor/remediation.log");
        std::vector<std::string> errors;
        for (std::string line; std::getline(log, line);) {
            if (line.find(" ERROR ") != std::string::npos) errors.push_back(line);
        }
        return errors;
    }

    IntegrationFixture fixture;
    zelor::test::TempDir scratch;
    zelor::test::SigningKey otherKey = zelor::test::SigningKey::ec();
    std::string bomb = ArchiveBuilder().file("bomb", std::string(96U << 20U, '\0')).finish();
    std::vector<Kind> kinds;
    /// What a run may write: the content directory, log and record, the agent's own directory.
    const std::vector<std::string> own = {"content", "var/log", "opt"};
    zelor::test::Snapshot before;
};

}  // namespace zelor::test
