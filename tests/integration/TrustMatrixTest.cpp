#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <fstream>

#include "agent/trust/BundleManifest.h"
#include "agent/trust/Sha256.h"
#include "base/CommandRunner.h"
#include "tests/integration/IntegrationFixture.h"
#include "tests/integration/Snapshot.h"

using zelor::test::ArchiveBuilder;
using zelor::test::changes;
using zelor::test::IntegrationFixture;
using zelor::test::readFile;
using zelor::test::snapshotOf;
using zelor::test::writeFile;
namespace fs = boost::filesystem;

namespace {

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

/// State and what the log has to say of it; nothing when the state alone refuses nothing.
const std::vector<std::pair<std::string, std::string>> kArchiveStates = {
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
const std::vector<std::pair<std::string, std::string>> kSignatureStates = {
    {"good", ""},
    {"missing", ".sig: No such file"},
    {"wrongkey", "does not match"},
    {"anothers", "does not match"},
    {"truncated", "does not match"},
    {"empty", "the signature is empty"},
    {"huge", "larger than the 16384 bytes"},
};

std::uint32_t numberAt(const std::string& bytes, std::size_t at, int size) {
    std::uint32_t number = 0;
    for (int i = size; i-- > 0;)
        number = number << 8U | static_cast<unsigned char>(bytes.at(at + static_cast<std::size_t>(i)));
    return number;
}

void setNumber(std::string& bytes, std::size_t at, int size, std::uint32_t number) {
    for (int i = 0; i < size; ++i, number >>= 8U)
        bytes.at(at + static_cast<std::size_t>(i)) = static_cast<char>(number & 0xffU);
}

/// One zip archive with the entries of two.
std::string joined(const std::string& one, const std::string& other) {
    constexpr std::size_t kEndSize = 22, kCountAt = 10, kSizeAt = 12, kOffsetAt = 16, kLocalAt = 42;
    const auto parts = [&](const std::string& zip) {
        const std::size_t offset = numberAt(zip, zip.size() - kEndSize + kOffsetAt, 4);
        return std::pair{zip.substr(0, offset), zip.substr(offset, zip.size() - kEndSize - offset)};
    };
    const auto [oneFiles, oneDirectory] = parts(one);
    auto [otherFiles, otherDirectory] = parts(other);
    for (std::size_t at = 0; at < otherDirectory.size();) {
        const auto local = numberAt(otherDirectory, at + kLocalAt, 4);
        setNumber(otherDirectory, at + kLocalAt, 4, local + static_cast<std::uint32_t>(oneFiles.size()));
        at += 46 + numberAt(otherDirectory, at + 28, 2) + numberAt(otherDirectory, at + 30, 2) +
              numberAt(otherDirectory, at + 32, 2);
    }
    std::string end = one.substr(one.size() - kEndSize);
    const auto count = numberAt(end, kCountAt, 2) + numberAt(other, other.size() - kEndSize + kCountAt, 2);
    setNumber(end, kCountAt - 2, 2, count);
    setNumber(end, kCountAt, 2, count);
    setNumber(end, kSizeAt, 4, static_cast<std::uint32_t>(oneDirectory.size() + otherDirectory.size()));
    setNumber(end, kOffsetAt, 4, static_cast<std::uint32_t>(oneFiles.size() + otherFiles.size()));
    return oneFiles + otherFiles + oneDirectory + otherDirectory + end;
}

/// The last entry as another type of file.
std::string withLastMode(const std::string& zip, unsigned mode) {
    const auto at = zip.rfind("PK\x01\x02");
    return zip.substr(0, at) + zelor::test::withMode(zip.substr(at), mode);
}

std::string withFlippedData(std::string zip) {
    const std::size_t data = 30 + numberAt(zip, 26, 2) + numberAt(zip, 28, 2);
    zip.at(data + 2) = static_cast<char>(zip.at(data + 2) ^ 0x55);
    return zip;
}

std::string upperCased(std::string text) {
    for (char& c : text)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
}

class TrustMatrix : public testing::Test {
  protected:
    TrustMatrix() {
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
            for (const auto& [archiveState, archiveCause] : kArchiveStates) {
                for (const auto& [signatureState, signatureCause] : kSignatureStates) {
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

TEST_F(TrustMatrix, OnlyAGoodArchiveWithAGoodSignatureIsRunOrCopied) {
    std::vector<Cell> refused, accepted;
    for (Cell& cell : cells())
        (cell.accepted() ? accepted : refused).push_back(std::move(cell));
    ASSERT_EQ(accepted.size(), 2 * kinds.size()) << "good, and good but for set-id bits";

    int survived = 0;
    const IntegrationFixture::Map results = run(refused);
    EXPECT_THAT(changes(before, snapshotOf(fixture.dir.path(), own)), testing::IsEmpty());
    EXPECT_TRUE(fs::is_empty(fixture.dir / "opt/partial"));
    EXPECT_EQ(fixture.record(), "");
    const std::vector<std::string> errors = errorLines();
    for (const Cell& cell : refused) {
        const bool held = results.at(cell.key()) == 12 && named(errors, cell);
        EXPECT_TRUE(held) << cell.stem() << " reads " << results.at(cell.key()) << ", wanted: " << cell.cause;
        survived += held ? 1 : 0;
    }

    for (const char* state : {"good", "setuid"}) {
        std::vector<Cell> now;
        std::copy_if(accepted.begin(), accepted.end(), std::back_inserter(now),
                     [&](const Cell& cell) { return cell.archiveState == state; });
        const IntegrationFixture::Map good = run(now);
        for (const Cell& cell : now) {
            const bool held = good.at(cell.key()) == 4 && fs::exists(cell.kind->mark);
            EXPECT_TRUE(held) << cell.stem() << " reads " << good.at(cell.key());
            survived += held ? 1 : 0;
            fs::remove(cell.kind->mark);
        }
    }
    for (const auto& entry : fs::recursive_directory_iterator(fixture.dir.path()))
        EXPECT_EQ(entry.status().permissions() & 06000, 0) << entry.path() << " kept a set-id bit";
    std::printf("trust matrix: %zu tried, %d survived\n", refused.size() + accepted.size(), survived);
}

zelor::agent::FileDigest digestOf(const std::string& bytes) {
    zelor::agent::Sha256 sha256;
    sha256.add(bytes);
    return sha256.finish();
}

/// Every kind of signed payload in the place of every kind of patch: as its archive, in its archive, or both.
class SwapMatrix : public TrustMatrix {
  protected:
    struct Swap {
        const Kind* victim;
        const Kind* source;
        std::string way;
        std::string stem() const { return victim->name + "-for-" + source->name + "-" + way; }
        std::string patchId() const { return stem() + victim->extension; }
        std::string identifier() const { return victim->identifier + stem(); }
        std::string key() const { return stem() + "||"; }
    };

    std::vector<Swap> swaps() const {
        std::vector<Swap> all;
        for (const Kind& victim : kinds) {
            for (const Kind& source : kinds) {
                for (const char* way : {"archive", "file", "both"})
                    all.push_back({&victim, &source, way});
            }
        }
        return all;
    }
    std::string evilText(const Kind& kind) {
        return kind.name == "bundle" ? manifestOf(kind.evil) : kind.evil.front().second;
    }
    /// Payload and signature under the names of one patch.
    void addSigned(ArchiveBuilder& zip, const std::string& stem, const std::string& extension,
                   const Payload& payload, const std::string& text) {
        add(zip, stem + extension, payload, 0755);
        zip.file(stem + ".sig", fixture.key.sign(text));
    }
    std::string goodArchive(const Swap& swap) {
        ArchiveBuilder zip;
        addSigned(zip, swap.stem(), swap.victim->extension, swap.victim->good, swap.victim->signedText);
        return zip.finish();
    }
    std::string swappedArchive(const Swap& swap) {
        ArchiveBuilder zip;
        if (swap.way != "file")
            addSigned(zip, "source", swap.source->extension, swap.source->evil, evilText(*swap.source));
        if (swap.way != "archive")
            addSigned(zip, swap.stem(), swap.victim->extension, swap.source->evil, evilText(*swap.source));
        return zip.finish();
    }
    void addSwap(const Swap& swap, bool fileDigest, bool archiveDigest) {
        const auto attributes = [](const std::string& sha256, const std::string& length,
                                   const zelor::agent::FileDigest& digest) {
            return ' ' + sha256 + "=\"" + digest.sha256 + "\" " + length + "=\"" +
                   std::to_string(digest.length) + '"';
        };
        std::string patch = "<patch id=\"" + swap.patchId() + "\" size=\"1 KB\" md5=\"00\"";
        if (fileDigest) patch += attributes("sha256", "length", digestOf(swap.victim->signedText));
        if (archiveDigest)
            patch += attributes("archiveSha256", "archiveLength", digestOf(served[swap.stem()]));
        const std::string id = swap.identifier();
        fixture.addContentText(id, "<remediation identifier=\"" + id + "\"><cre id=\"CRE-" + id +
                                       "\"><eri id=\"ERI-" + id + "\"><product>cpe:/a:example:x</product>" +
                                       patch + "/></eri></cre></remediation>");
    }
    IntegrationFixture::Map runSwaps(const std::vector<Swap>& all, bool fileDigest, bool archiveDigest) {
        std::map<std::string, std::string> requests;
        for (const Swap& swap : all) {
            addSwap(swap, fileDigest, archiveDigest);
            requests[swap.key()] = swap.identifier();
        }
        before = snapshotOf(fixture.dir.path(), own);
        return fixture.run(requests);
    }
    void expectNothingHappened(const std::vector<Swap>& all, const IntegrationFixture::Map& results) {
        EXPECT_THAT(changes(before, snapshotOf(fixture.dir.path(), own)), testing::IsEmpty());
        EXPECT_EQ(fixture.record(), "");
        for (const Swap& swap : all)
            EXPECT_EQ(results.at(swap.key()), 12U) << swap.stem();
    }

    std::map<std::string, std::string> served;  ///< by stem: what the archive's digest in content is made of
};

TEST_F(SwapMatrix, NothingSignedForAnotherPlaceIsUsed) {
    const std::vector<Swap> all = swaps();
    for (const Swap& swap : all)
        fixture.addArchive(swap.stem(), swappedArchive(swap));
    // The digest of the archive alone, of the file alone (of an archive that nobody could have swapped),
    // both.
    for (const Swap& swap : all)
        served[swap.stem()] = goodArchive(swap);
    expectNothingHappened(all, runSwaps(all, false, true));
    expectNothingHappened(all, runSwaps(all, true, true));
    expectNothingHappened(all, runSwaps(all, true, false));

    // From the buffer no download is judged.
    std::string list;
    for (const Swap& swap : all) {
        fs::rename(fixture.dir / ("repo/patches/" + swap.stem() + ".zip"),
                   fixture.dir / ("var/zelor/buffer/" + swap.stem() + ".zip"));
        list += swap.patchId() + "=00\n";
    }
    writeFile(fixture.dir / "var/zelor/unzip/bufferdPatchesList.txt", list);
    const IntegrationFixture::Map buffered = runSwaps(all, false, true);
    for (const Swap& swap : all)
        EXPECT_NE(buffered.at(swap.key()), 4U) << swap.stem();
    EXPECT_FALSE(fs::exists(fixture.dir / "evil"));
    EXPECT_TRUE(fs::is_empty(fixture.dir / "Applications"));
    EXPECT_EQ(fixture.record(), "");
}

TEST_F(SwapMatrix, WithoutDigestsTheOldWayHoldsUnlessTheyAreRequired) {
    const Swap swap{&kinds[0], &kinds[0], "file"};
    fixture.addArchive(swap.stem(), swappedArchive(swap));
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    const std::string settings = readFile(ini);
    writeFile(ini, settings + "[Repository2]\n");
    EXPECT_EQ(runSwaps({swap}, false, false).at(swap.key()), 4U);
    EXPECT_TRUE(fs::exists(fixture.dir / "evil"));
    fs::remove(fixture.dir / "evil");
    fs::remove(fixture.dir / "var/log/zelor/ZelorInstalledPatches.txt");
    std::string required = settings;
    required.insert(required.find("Url"), "RequireDigests = true\n");
    writeFile(ini, required);
    expectNothingHappened({swap}, runSwaps({swap}, false, false));
    EXPECT_TRUE(fixture.logged("gives no digest of " + swap.stem() + ".zip"));
}

TEST_F(SwapMatrix, ContentIsForItsIdentifierAloneAndOneNameHasOneDigest) {
    const Swap one{&kinds[0], &kinds[0], "file"}, other{&kinds[0], &kinds[1], "file"};
    for (const Swap& swap : {one, other}) {
        served[swap.stem()] = goodArchive(swap);
        fixture.addArchive(swap.stem(), served[swap.stem()]);
        addSwap(swap, true, true);
    }
    const auto content = [&](const Swap& swap) {
        return fixture.dir / ("repo/content/" + swap.identifier() + ".xml");
    };
    const std::string good = readFile(content(one));
    for (const char* end : {"", ".sig"})
        writeFile(content(one) + end, readFile(content(other) + end));
    const std::map<std::string, std::string> requests = {{one.key(), one.identifier()}};
    EXPECT_EQ(fixture.run(requests).at(one.key()), 6U);
    EXPECT_FALSE(fs::exists(fixture.dir / "ran"));

    // Two contents that differ on one archive: neither gets what the other asked for.
    std::string rival = good;
    const std::string rivalId = "CCE-rival";
    for (auto at = rival.find(one.identifier()); at != rival.npos; at = rival.find(one.identifier(), at + 1))
        rival.replace(at, one.identifier().size(), rivalId);
    const auto digest = rival.find("archiveSha256=\"") + 15;
    rival.replace(digest, 4, rival.compare(digest, 4, "0000") == 0 ? "1111" : "0000");
    fixture.addContentText(one.identifier(), good);
    fixture.addContentText(rivalId, rival);
    const IntegrationFixture::Map results =
        fixture.run({{one.key(), one.identifier()}, {"rival||", rivalId}});
    EXPECT_EQ(results.at(one.key()), 12U);
    EXPECT_EQ(results.at("rival||"), 12U);
    EXPECT_TRUE(fixture.logged("give different digests of " + one.stem() + ".zip"));
    EXPECT_EQ(fixture.run(requests).at(one.key()), 4U);
}

}  // namespace
