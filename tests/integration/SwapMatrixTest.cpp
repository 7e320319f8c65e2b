#include "agent/trust/Sha256.h"
#include "tests/integration/TrustMatrix.h"

namespace zelor::test {
namespace {

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

TEST_P(SwapMatrix, NothingSignedForAnotherPlaceIsUsed) {
    const std::vector<Swap> all = swaps();
    for (const Swap& swap : all)
        fixture.addArchive(swap.stem(), swappedArchive(swap));
    // Only the digest of the archive, only that of the file (with the good archive), or both.
    for (const Swap& swap : all)
        served[swap.stem()] = goodArchive(swap);
    expectNothingHappened(all, runSwaps(all, false, true));
    expectNothingHappened(all, runSwaps(all, true, true));
    expectNothingHappened(all, runSwaps(all, true, false));

    EXPECT_EQ(fixture.cameEarly >= all.size(), GetParam());

    // From the buffer, where no download is checked.
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

TEST_P(SwapMatrix, WithoutDigestsTheOldWayHoldsUnlessTheyAreRequired) {
    const Swap swap{&kinds[0], &kinds[0], "file"};
    fixture.addArchive(swap.stem(), swappedArchive(swap));
    const std::string ini = fixture.dir / "etc/zelor/zelor.ini";
    const std::string settings = readFile(ini);
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

TEST_P(SwapMatrix, ContentIsForItsIdentifierAloneAndOneNameHasOneDigest) {
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

INSTANTIATE_TEST_SUITE_P(AheadOfNeed, SwapMatrix, testing::Bool());

}  // namespace
}  // namespace zelor::test
