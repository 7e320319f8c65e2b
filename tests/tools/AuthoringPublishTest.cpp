#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <set>
#include <thread>

#include "agent/archive/ArchiveExtractor.h"
#include "agent/content/ContentDocument.h"
#include "agent/trust/BundleManifest.h"
#include "agent/trust/Signature.h"
#include "authoring/checks/RepositoryCheck.h"
#include "authoring/manifest/SizeText.h"
#include "authoring/publish/Digests.h"
#include "authoring/publish/PublishState.h"
#include "authoring/publish/SigningKey.h"
#include "base/StagedFile.h"
#include "remediation/buffer/PatchSize.h"
#include "tools/AuthoringFixture.h"

namespace zelor::authoring {
namespace {

namespace fs = boost::filesystem;
using test::readFile;
using test::ToolRun;
using test::writeFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

struct PublishTest : test::Authoring {
    /// Path below the repository to its stamp, for all that is served.
    std::map<std::string, std::string> stamps() const {
        std::map<std::string, std::string> found;
        for (fs::recursive_directory_iterator it(repository), end; it != end; ++it) {
            if (fs::is_regular_file(it->path()) && it->path().filename().string()[0] != '.') {
                found[it->path().string().substr(repository.size() + 1)] = fileStamp(it->path().string());
            }
        }
        return found;
    }
    std::set<std::string> changedSince(const std::map<std::string, std::string>& before) const {
        std::set<std::string> names;
        for (const auto& [name, stamp] : stamps()) {
            if (before.count(name) == 0 || before.at(name) != stamp) names.insert(name);
        }
        return names;
    }
};

TEST_F(PublishTest, AgentsReadContentAndPatchesAsTheManifestSays) {
    const ToolRun run = publish();
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    const auto entry = [&](const std::string& identifier) {
        const std::string file = repository + "/content/" + identifier + ".xml";
        EXPECT_TRUE(agent::verifyPath(file, file + ".sig", publicKey).good);
        return agent::ContentDocument::parse(readFile(file), identifier);
    };
    const agent::ContentDocument script = entry("CCE-1"), two = entry("CVE-1"), os = entry("CVE-3");
    creEriParsedData cre = *script.find("cpe:/o:apple:mac_os_x", "cpe:/a:any:thing");
    parsedEriData eri = cre.getParsedEriDataBlocks().at(0);
    EXPECT_EQ(cre.getCreId(), "CRE-CCE-1");
    EXPECT_EQ(eri.getEriId(), "ERI-CCE-1-1");
    EXPECT_TRUE(eri.getReboot());
    EXPECT_EQ(eri.getInstructions(), "Locks <the> screen & keeps it so");
    EXPECT_EQ(eri.getProductCpe(), "cpe:/o:apple:mac_os_x");
    EXPECT_EQ(eri.getPatchSize(), "1 KB");
    EXPECT_EQ(script.find("cpe:/o:other:os", ""), nullptr);
    cre = *two.find("any", "cpe:/a:x:one");
    eri = cre.getParsedEriDataBlocks().at(0);
    EXPECT_EQ(eri.getEriId(), "ERI-7-1");
    EXPECT_EQ(eri.getSilentModeCmd(), "tool -q");
    EXPECT_EQ(eri.getPatchSize(), "294 KB");
    cre = *two.find("any", "cpe:/a:x:two");
    EXPECT_THAT(cre.getEriIds(), ElementsAre("ERI-8"));
    cre = *os.find("cpe:/o:apple:mac_os_x", "");
    EXPECT_EQ(cre.getParsedEriDataBlocks().at(0).getPatchId(), "");
    EXPECT_EQ(fs::file_size(repository + "/speed.bin"), 2U << 20U);
}

TEST_F(PublishTest, CheckScriptsArePublishedAndKeptLikePatches) {
    manifest = R"([{"identifier": "CCE-1", "file": "lock.bsh", "check": "is-lock.bsh"},
        {"identifier": "CVE-1", "file": "editor-2.1.pkg", "check": {"receipt": "com.x.editor", "version": "2.1"}}])";
    writeFile(source + "/is-lock.bsh", "true\n");
    ASSERT_EQ(publish(manifest, {"--prune"}).status, 0);
    const std::string file = repository + "/content/CCE-1.xml";
    const agent::ContentDocument content = agent::ContentDocument::parse(readFile(file), "CCE-1");
    ASSERT_EQ(content.checks("", "").size(), 1U);
    EXPECT_EQ(content.checks("", "")[0].name, "is-lock.bsh");
    const auto digests = content.patches("", "").at(1);
    EXPECT_EQ(digests.file, fileDigest(digestsOfText("true\n")));
    EXPECT_EQ(digests.archive, fileDigest(digestsOfFile(repository + "/patches/is-lock.zip")));
    EXPECT_THAT(readFile(repository + "/content/CVE-1.xml"),
                HasSubstr(R"(<check receipt="com.x.editor" version="2.1" />)"));
    EXPECT_THAT(check().out, HasSubstr("2 entries, 3 patches: 0 errors, 0 warnings\n"));
    // Without its digest, agents would run whatever this key has signed.
    std::string xml = readFile(file);
    const auto at = xml.find(" sha256", xml.find("<check"));
    xml.erase(at, xml.find("/>", at) - at);
    writeFile(file, xml);
    writeFile(file + ".sig", SigningKey::load(privateKey).sign(digestsOfText(xml).sha256));
    const ToolRun stripped = check();
    EXPECT_EQ(stripped.status, 1);
    EXPECT_THAT(stripped.out, HasSubstr("it gives no digest of \"is-lock.bsh\""));
}

TEST_F(PublishTest, ArchivesUnpackToTheSignedSource) {
    ASSERT_EQ(publish().status, 0);
    const std::string out = dir / "unpacked";
    for (const char* stem : {"lock", "editor-2.1", "image", "Bundle"})
        agent::ArchiveExtractor().extract(repository + "/patches/" + stem + ".zip", out);
    for (const char* name : {"lock.bsh", "editor-2.1.pkg", "image.dmg", "Bundle.app"}) {
        SCOPED_TRACE(name);
        const std::string signature = fs::path(name).stem().string() + ".sig";
        EXPECT_TRUE(agent::verifyPath(out + '/' + name, out + '/' + signature, publicKey).good);
        EXPECT_EQ(readFile(out + '/' + signature), readFile(repository + "/patches/" + signature));
    }
    EXPECT_EQ(readFile(out + "/editor-2.1.pkg"), readFile(source + "/editor-2.1.pkg"));
    EXPECT_EQ(agent::bundleManifest(out + "/Bundle.app"), agent::bundleManifest(source + "/Bundle.app"));
    EXPECT_EQ(fs::last_write_time(out + "/lock.bsh"), fs::last_write_time(source + "/lock.bsh"));
}

TEST_F(PublishTest, EveryOccurrenceOfTheExtensionGivesWayToTheSignature) {
    writeFile(source + "/a.pkg", test::flatPackage("x"));
    ASSERT_EQ(
        publish(
            R"([{"identifier": "CVE-1", "product": "cpe:/a:x", "file": "a.pkg", "patchId": "a.pkg.b.pkg"}])")
            .status,
        0);
    agent::ArchiveExtractor().extract(repository + "/patches/a.pkg.b.zip", dir / "out");
    EXPECT_TRUE(agent::verifyPath(dir / "out/a.pkg.b.pkg", dir / "out/a.sig.b.sig", publicKey).good);
}

TEST_F(PublishTest, OnlyWhatChangedIsWritten) {
    ASSERT_EQ(publish().status, 0);
    auto before = stamps();
    const auto next = [&] {
        EXPECT_EQ(publish().status, 0);
        const std::set<std::string> changed = changedSince(before);
        before = stamps();
        return changed;
    };
    EXPECT_THAT(next(), ElementsAre());
    writeFile(source + "/image.dmg", image("an image of another size"));
    EXPECT_THAT(next(), ElementsAre("content/CVE-1.xml", "content/CVE-1.xml.sig", "patches/image.sig",
                                    "patches/image.zip"));
    fs::remove(source + "/Bundle.app/Bundle.app/Versions/Current");
    fs::create_symlink("B", source + "/Bundle.app/Bundle.app/Versions/Current");
    EXPECT_THAT(next(), ElementsAre("content/CVE-2.xml", "content/CVE-2.xml.sig", "patches/Bundle.sig",
                                    "patches/Bundle.zip"));
    manifest.replace(manifest.find("tool -q"), 7, "tool -s");
    EXPECT_THAT(next(), ElementsAre("content/CVE-1.xml", "content/CVE-1.xml.sig"));
    writeFile(repository + "/patches/lock.zip", "tampered with");
    writeFile(repository + "/content/CVE-3.xml.sig", "lost");
    // A new archive has another digest, since signatures of EC keys differ each time.
    EXPECT_THAT(next(), ElementsAre("content/CCE-1.xml", "content/CCE-1.xml.sig", "content/CVE-3.xml",
                                    "content/CVE-3.xml.sig", "patches/lock.sig", "patches/lock.zip"));
    EXPECT_EQ(check().status, 0);
    fs::remove_all(dir / "keys");
    test::contentTool({"keygen", "--out", dir / "keys", "--type", "rsa"});
    EXPECT_EQ(next().size(), before.size() - 1) << "all but speed.bin is signed anew";
    EXPECT_EQ(check().status, 0);
}

TEST_F(PublishTest, TheSameSourceGivesTheSameBytes) {
    ASSERT_EQ(publish().status, 0);
    const auto withoutSignature = [&](const std::string& name) {
        const std::string zip = readFile(repository + "/patches/" + name);
        return zip.substr(0, zip.find("PK\x03\x04", zip.rfind("Bundle.app/", zip.rfind("PK\x03\x04"))));
    };
    const std::string first = withoutSignature("Bundle.zip");
    fs::remove_all(repository);
    ASSERT_EQ(publish().status, 0);
    ASSERT_GT(first.size(), 500U);
    EXPECT_EQ(withoutSignature("Bundle.zip"), first);
}

TEST_F(PublishTest, ManifestsShareARepositoryAndLeftoversGo) {
    ASSERT_EQ(publish().status, 0);
    writeFile(repository + "/patches/.staged-abc", "half");
    writeFile(repository + "/.content-next/CVE-9.xml", "half");
    writeFile(source + "/more.pkg", test::flatPackage("more"));
    writeFile(source + "/more.json",
              R"([{"identifier": "CVE-9", "product": "cpe:/a:x:more", "file": "more.pkg"}])");
    ASSERT_EQ(test::contentTool({"publish", source + "/more.json", "--key", privateKey, "--out", repository})
                  .status,
              0);
    EXPECT_FALSE(fs::exists(repository + "/patches/.staged-abc"));
    EXPECT_FALSE(fs::exists(repository + "/.content-next"));
    const ToolRun run = check();
    EXPECT_EQ(run.status, 0) << run.out;
    EXPECT_THAT(run.out, HasSubstr("5 entries, 5 patches"));
}

TEST_F(PublishTest, WhatAManifestNoLongerNamesIsWithdrawn) {
    const std::string other = R"([{"identifier": "CVE-9", "product": "cpe:/a:x:more", "file": "image.dmg"}])";
    const std::string state = publishStateFile(repository), image = repository + "/patches/image.zip";
    const auto hasContent = [&](const std::string& id) {
        const std::string file = repository + "/content/" + id + ".xml";
        EXPECT_EQ(fs::exists(file), fs::exists(file + ".sig"));
        return fs::exists(file);
    };
    ASSERT_EQ(publish().status, 0);
    writeFile(source + "/other.json", other);
    ASSERT_EQ(test::contentTool({"publish", source + "/other.json", "--key", privateKey, "--out", repository})
                  .status,
              0);
    manifest.erase(manifest.find("{\"identifier\": \"CVE-1\""),
                   manifest.find("{\"identifier\": \"CVE-2\"") - manifest.find("{\"identifier\": \"CVE-1\""));
    writeFile(source + "/manifest.json", manifest);
    EXPECT_THAT(check().out, HasSubstr("content/CVE-1.xml: it is still published, but no longer in "));
    ToolRun run = publish();
    EXPECT_THAT(run.out, HasSubstr("withdrew content/CVE-1.xml\n3 entries (0 written, 1 withdrawn)"));
    EXPECT_FALSE(hasContent("CVE-1"));
    EXPECT_TRUE(hasContent("CVE-9")) << "another manifest's";
    EXPECT_TRUE(fs::exists(repository + "/patches/editor-2.1.zip")) << "runs that read the old content go on";
    EXPECT_EQ(check().status, 0) << check().out;

    // A day later.
    PublishState old = readPublishState(state);
    old.patches.at("editor-2.1.pkg").unnamedSince -= 24 * 60 * 60;
    writePublishState(state, old);
    EXPECT_THAT(publish().out, HasSubstr("removed patches/editor-2.1.zip"));
    EXPECT_FALSE(fs::exists(repository + "/patches/editor-2.1.sig"));
    EXPECT_TRUE(fs::exists(image)) << "CVE-9 names it";

    const std::vector<std::string> with = {"check",   repository,   "--key",
                                           publicKey, "--manifest", source + "/manifest.json"};
    EXPECT_THAT(test::contentTool(with).out, HasSubstr("content/CVE-9.xml: it is still published"));
    EXPECT_THAT(publish(manifest, {"--only"}).out, HasSubstr("withdrew content/CVE-9.xml"));
    EXPECT_TRUE(fs::exists(image));
    writeFile(image, "somebody else's");
    EXPECT_THAT(publish(manifest, {"--prune"}).out, Not(HasSubstr("removed")));
    EXPECT_TRUE(fs::exists(image)) << "not as it was published";
    EXPECT_THAT(check().out, HasSubstr("patches/image.zip: no content names it"));
}

/// Every entry is signed, and every archive that it names exists and is valid. Allowed are warnings, and
/// digests of archives that are newer than the content, which agents refuse until the next publication.
void expectWhole(const std::string& repository, const std::string& key) {
    for (const Finding& finding : checkRepository(repository, key).findings) {
        if (finding.severity == Severity::warning) continue;
        EXPECT_THAT(finding.what, HasSubstr("is not that of")) << finding.place;
    }
}

TEST_F(PublishTest, KilledAtAnyTimeItShowsNothingIncomplete) {
    // Some more entries, so that showing them takes a while.
    const auto version = [&](const std::string& text, const char* image, const char* option) {
        std::string json = std::string(R"([{"identifier": "CCE-1", "file": "lock.bsh"},
            {"identifier": "CVE-1", "product": "cpe:/a:x:one", "file": ")") +
                           image + R"(", "silent": ")" + option + "\"}";
        for (int i = 100; i < 120; ++i)
            json += ", {\"identifier\": \"CVE-" + text + std::to_string(i) +
                    R"(", "platform": "cpe:/o:apple:mac_os_x", "instructions": "OS Remediation )" + option +
                    "\"}";
        return json + ']';
    };
    const auto shownNow = [&] {
        struct stat directory {
        }, file{};
        ::stat((repository + "/content").c_str(), &directory);
        ::stat((repository + "/content/CVE-1.xml.sig").c_str(), &file);
        return std::make_pair(directory.st_ino, file.st_ino);
    };
    std::minstd_rand random(7);
    int killed = 0;
    for (unsigned round = 0; round < 16; ++round) {
        SCOPED_TRACE(round);
        const std::string number = std::to_string(round);
        for (const char* name : {"/image.dmg", "/photo.dmg"})
            writeFile(source + name, image("# " + number));
        writeFile(source + "/lock.bsh", "# " + number);
        writeFile(source + "/manifest.json",
                  version(round % 3 ? "1" : "2", round % 2 ? "image.dmg" : "photo.dmg", number.c_str()));
        test::ToolProcess tool(
            {"publish", source + "/manifest.json", "--key", privateKey, "--out", repository, "--prune"},
            dir / "errors");
        // After some of its lines or when the published content begins to change, and after a random delay.
        if (round % 2 == 0) {
            for (auto lines = random() % 8 + (round % 4) * 10; lines > 0 && !tool.line().empty();)
                --lines;
        } else {
            const auto shown = shownNow();
            while (shownNow() == shown && !tool.ended()) {
            }
        }
        for (volatile auto work = random() % 100'000; work > 0;)
            work = work - 1;
        const int status = tool.end(SIGKILL);  // the macro takes its address on macOS
        killed += WIFSIGNALED(status) ? 1 : 0;
        if (fs::exists(repository + "/content")) expectWhole(repository, publicKey);
    }
    EXPECT_GT(killed, 0);
    for (const char* image : {"photo.dmg", "image.dmg"})
        ASSERT_EQ(publish(version("1", image, "last"), {"--prune"}).status, 0);
    EXPECT_EQ(check().out, "22 entries, 2 patches: 0 errors, 0 warnings\n");
}

std::string readBelow(const base::UniqueFd& directory, const char* name) {
    const base::UniqueFd file(::openat(directory.get(), name, O_RDONLY | O_CLOEXEC));
    std::string text(4096, '\0');
    const ssize_t got = ::read(file.get(), text.data(), text.size());
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return text;
}

TEST_F(PublishTest, ReadersNeverSeeContentWithoutItsSignature) {
    ASSERT_EQ(publish().status, 0);
    std::atomic<bool> done{false};
    std::atomic<int> torn{0}, looks{0};
    std::thread reader([&] {
        while (!done) {
            // The directory is opened once: both files come from one state of it.
            const base::UniqueFd directory = base::openFile(repository + "/content", O_RDONLY | O_DIRECTORY);
            const std::string text = readBelow(directory, "CVE-3.xml");
            const std::string signature = readBelow(directory, "CVE-3.xml.sig");
            torn += directory.valid() ? 0 : 1;
            // A directory that was exchanged while it was open is emptied.
            if (!text.empty() && !signature.empty()) {
                torn += agent::verifyBytes(text, signature, publicKey).good ? 0 : 1;
                ++looks;
            }
        }
    });
    for (int i = 0; i < 20 || looks < 100; ++i) {
        manifest.replace(manifest.find("OS Remediation: ") + 16, 6, i % 2 ? "update" : "UPDATE");
        ASSERT_EQ(publish().status, 0);
    }
    done = true;
    reader.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(PublishTest, WhereDirectoriesCannotBeExchangedFilesAreRenamed) {
    ASSERT_EQ(publish().status, 0);
    fs::rename(repository + "/content", dir / "elsewhere");
    fs::create_symlink(dir / "elsewhere", repository + "/content");
    manifest.replace(manifest.find("tool -q"), 7, "tool -s");
    ASSERT_EQ(publish().status, 0);
    EXPECT_TRUE(fs::is_symlink(repository + "/content"));
    EXPECT_THAT(readFile(dir / "elsewhere/CVE-1.xml"), HasSubstr("tool -s"));
    EXPECT_EQ(check().status, 0);
}

TEST_F(PublishTest, AFailureLeavesTheContentUnchanged) {
    ASSERT_EQ(publish().status, 0);
    auto before = stamps();
    writeFile(source + "/image.dmg", "new");
    writeFile(source + "/lock.bsh", "# new");
    fs::remove(repository + "/patches/image.sig");
    fs::create_directory(repository + "/patches/image.sig");
    before.erase("patches/image.sig");
    const ToolRun run = publish();
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.err, HasSubstr("cannot write " + repository + "/patches/image.sig"));
    EXPECT_THAT(changedSince(before),
                ElementsAre("patches/image.zip", "patches/lock.sig", "patches/lock.zip"));
    for (const auto& entry : fs::directory_iterator(repository + "/patches"))
        EXPECT_FALSE(base::isStagedName(entry.path().filename().string()));
}

TEST_F(PublishTest, AnotherFileUnderAPublishedEriIdIsAWarning) {
    const char* said =
        "ERI-8: same ERI id, other file: machines that have it keep the old one\n"
        "    remedy: give it a new id\n";
    ASSERT_EQ(publish().err, "");
    // Machines remember the id of an entry that was withdrawn.
    ASSERT_EQ(publish("[]", {"--prune"}).status, 0);
    writeFile(source + "/image.dmg", "corrected");
    const auto before = stamps();
    ToolRun run = publish(manifest, {"--strict"});
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, AllOf(HasSubstr(said), HasSubstr("--strict")));
    EXPECT_THAT(changedSince(before), ElementsAre());
    run = publish();
    EXPECT_EQ(run.status, 0);
    EXPECT_THAT(run.err, HasSubstr(said));
    EXPECT_THAT(run.err, Not(HasSubstr("ERI-7-1"))) << "its file is the same";
    EXPECT_EQ(publish(manifest, {"--strict"}).err, "") << "this file is the one compared with now";
    writeFile(source + "/image.dmg", "corrected again");
    manifest.replace(manifest.find("ERI-8"), 5, "ERI-9");
    EXPECT_EQ(publish(manifest, {"--strict"}).err, "");
}

/// More files than are flushed one by one, and more than one group of them.
TEST_F(PublishTest, ManyEntriesArePublishedInGroups) {
    std::string many = "[";
    constexpr int kCount = 510;
    for (int i = 0; i < kCount; ++i) {
        const std::string number = std::to_string(1000 + i);
        writeFile(source + "/p" + number + ".dmg", image(number));
        many += (i == 0 ? "" : ",") + (R"({"identifier": "CVE-)" + number) + R"(", "product": "cpe:/a:x:)" +
                number + R"(", "file": "p)" + number + ".dmg\"}";
    }
    const ToolRun run = publish(many + ']');
    EXPECT_THAT(run.out, HasSubstr("510 entries (510 written), 510 patches (510 written)"));
    EXPECT_EQ(check().out, "510 entries, 510 patches: 0 errors, 0 warnings\n");
    const auto before = stamps();
    ASSERT_EQ(publish(many + ']').status, 0);
    EXPECT_THAT(changedSince(before), ElementsAre());
}

TEST_F(PublishTest, OnePublicationAtATime) {
    ASSERT_EQ(publish().status, 0);
    const base::UniqueFd lock = base::openFile(repository + "/.zelor-content.lock", O_RDWR);
    struct stat info {};
    ASSERT_EQ(::fstat(lock.get(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777U, 0600U) << "who can open it can hold it";
    ASSERT_EQ(::flock(lock.get(), LOCK_EX), 0);
    const ToolRun run = publish();
    EXPECT_EQ(run.status, 2);
    EXPECT_THAT(run.err, HasSubstr("another publication"));
    EXPECT_THAT(run.err, HasSubstr(".zelor-content.lock"));
}

TEST_F(PublishTest, KeysAreSecretAndNeverOverwritten) {
    struct stat status {};
    ASSERT_EQ(::stat(privateKey.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    const std::string before = readFile(privateKey) + readFile(publicKey);
    EXPECT_EQ(test::contentTool({"keygen", "--out", dir / "keys"}).status, 2);
    fs::rename(privateKey, dir / "keys/away");
    EXPECT_EQ(test::contentTool({"keygen", "--out", dir / "keys"}).status, 2);
    EXPECT_EQ(readFile(dir / "keys/away") + readFile(publicKey), before);
    EXPECT_FALSE(fs::exists(privateKey));
    for (const std::string& unusable : {publicKey, dir / "none", dir.path().string()}) {
        const ToolRun run = test::contentTool({"publish", "m", "--key", unusable, "--out", repository});
        EXPECT_EQ(run.status, 2);
        EXPECT_THAT(run.err, HasSubstr("zelor-content keygen"));
    }
}

TEST_F(PublishTest, SignaturesAreThoseOfTheOpensslCommand) {
    if (shell("openssl version") != 0) GTEST_SKIP() << "the openssl command is not installed";
    for (const char* type : {"ec", "rsa"}) {
        SCOPED_TRACE(type);
        fs::remove_all(dir / "keys");
        ASSERT_EQ(test::contentTool({"keygen", "--out", dir / "keys", "--type", type}).status, 0);
        ASSERT_EQ(publish().status, 0);
        const std::string verify = "openssl dgst -sha256 -verify keys/repository.pem -signature repository/";
        EXPECT_EQ(shell(verify + "content/CVE-1.xml.sig repository/content/CVE-1.xml"), 0);
        EXPECT_EQ(shell(verify + "patches/image.sig source/image.dmg"), 0);
        EXPECT_NE(shell(verify + "patches/image.sig source/lock.bsh"), 0);
        writeFile(dir / "manifest", agent::bundleManifest(source + "/Bundle.app"));
        EXPECT_EQ(shell(verify + "patches/Bundle.sig manifest"), 0);
        EXPECT_EQ(shell("openssl pkey -in keys/repository.key -pubout | cmp - keys/repository.pem"), 0);
        EXPECT_EQ(shell("grep \"md5=.$(openssl dgst -md5 -r source/image.dmg | cut -c1-32)\" "
                        "repository/content/CVE-1.xml"),
                  0);
    }
    ASSERT_EQ(shell("openssl ecparam -name prime256v1 -genkey -noout | openssl ec -aes128 -passout pass:x "
                    "-out locked"),
              0);
    EXPECT_THAT(test::contentTool({"publish", "m", "--key", dir / "locked", "--out", repository}).err,
                HasSubstr("pass phrase"));
}

TEST(SizeTextTest, AgentsReadEverySizeAtLeastAsLargeAndHardlyLarger) {
    std::vector<std::uint64_t> sizes = {0, 1, 1023, 1024, 1025, 1047552, 1047553, 1048575, 1048576, 1048577};
    for (std::uint64_t megabytes : {1U, 9U, 12U, 999U, 2047U, 4096U, 70000U}) {
        for (std::uint64_t tenth = 0; tenth < 10; ++tenth) {
            const std::uint64_t exact = megabytes * 1048576 + tenth * 1048576 / 10;
            sizes.insert(sizes.end(), {exact - 1, exact, exact + 1});
        }
    }
    for (const std::uint64_t bytes : sizes) {
        const std::string text = sizeText(bytes);
        const auto read = static_cast<std::uint64_t>(remediation::parsePatchSize(text).bytes);
        EXPECT_GE(read, bytes) << text;
        EXPECT_LE(read, bytes + (bytes < 1048576 ? 1024U : 104858U)) << text;
        EXPECT_EQ(whySizeMisleads(text), "") << text;
    }
    EXPECT_EQ(sizeText(12U * 1048576 + 524288), "12.5 MB");
    EXPECT_EQ(sizeText(3 * 1024), "3 KB");
}

TEST(SizeTextTest, SaysWhatMisleads) {
    for (const char* good : {"12.5 MB", "3 KB", "2.25mb", "0.125 MB", " 7 kb "})
        EXPECT_EQ(whySizeMisleads(good), "") << good;
    EXPECT_THAT(whySizeMisleads("2 GB"), HasSubstr("reads as 2 bytes"));
    EXPECT_THAT(whySizeMisleads("2.05 MB"), HasSubstr("without its leading zeros"));
    for (const char* bad :
         {"", "MB", "12", "1.2.3 MB", "12,5 MB", "-1 MB", "1 MiB", "1.0625 MB", "about 3 MB"})
        EXPECT_NE(whySizeMisleads(bad), "") << bad;
}

}  // namespace
}  // namespace zelor::authoring
