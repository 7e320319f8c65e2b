#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <functional>

#include "tests/trust/Repository.h"
#include "trust/RepositoryWriter.h"

namespace zelor::trust {

namespace {

constexpr Time kDay = 86'400;

std::map<std::string, TargetFile> someFiles(int count, const std::string& bytes = "first") {
    std::map<std::string, TargetFile> files;
    for (int i = 0; i < count; ++i) {
        const std::string path = "content/CVE-2024-" + std::to_string(i) + ".xml";
        files[path] = {path, bytes.size(), {{"sha256", *digestOf("sha256", bytes)}}, ""};
    }
    return files;
}

/// A server whose files the writer writes, and a client of it. Each role begins with the key of its number.
struct Written {
    Repository server;
    MemoryStore store;
    RoleFiles newest;
    WriterOptions options;
    std::vector<std::string> names;  ///< of the last publication

    Written() {
        server.files.clear();
        options.now = kNow;
        options.binsFrom = 20;
        PublicKeys keys;
        std::size_t number = 0;
        for (const char* role : {"root", "targets", "snapshot", "timestamp"}) {
            options.keys.push_back(testKey(number++));
            keys[role] = {options.keys.back().publicKey()};
        }
        newest["root"] = firstRoot(keys, options).value();
        server.files["1.root.json"] = newest["root"];
    }
    base::Result<RepositoryWriter> open() const { return RepositoryWriter::open(newest, options); }
    /// Why it failed, "" when it did not.
    std::string publish(const std::optional<std::map<std::string, TargetFile>>& targets) {
        auto writer = open();
        base::Check done = targets ? writer->setTargets(*targets) : base::Check();
        if (done) done = writer->seal();
        if (!done) return done.error().text;
        keep(*writer);
        return "";
    }
    void keep(const RepositoryWriter& writer) {
        names.clear();
        for (const NewFile& file : writer.written()) {
            server.files[file.name] = file.bytes;
            names.push_back(file.name);
        }
        for (const RoleStatus& role : writer.roles())
            newest[role.role] = writer.bytesOf(role.role);
    }
    void setRoot(const std::string& root) {
        newest["root"] = root;
        server.files[std::to_string(open()->root().version) + ".root.json"] = root;
    }
    /// The digest that a client learns for a path; why it learns none otherwise.
    std::string find(const std::string& path) {
        Client client(server, store, {options.now, {}});
        if (const auto begun = client.initialise(server.files.at("1.root.json")); !begun)
            return begun.error().text;
        if (const auto good = client.refresh(); !good) return good.error().text;
        const auto found = client.find(path);
        if (!found) return found.error().text;
        return *found ? (*found)->digests.at("sha256") : "none";
    }
};

TEST(TrustWriter, ClientsFollowEveryPublication) {
    Written written;
    const std::string first = *digestOf("sha256", "first"), path = "content/CVE-2024-3.xml";
    ASSERT_EQ(written.publish(someFiles(5)), "");
    EXPECT_EQ(written.names,
              (std::vector<std::string>{"1.targets.json", "1.snapshot.json", "timestamp.json"}));
    EXPECT_EQ(written.find(path), first);
    // Nothing but the timestamp is new when nothing has changed.
    ASSERT_EQ(written.publish(someFiles(5)), "");
    EXPECT_EQ(written.names, std::vector<std::string>{"timestamp.json"});
    EXPECT_EQ(written.find("content/CVE-2024-9.xml"), "none");
    // 256 bins at once, then the one that changed; a repository that shrinks keeps them.
    ASSERT_EQ(written.publish(someFiles(30)), "");
    EXPECT_EQ(written.names.size(), 259U);
    EXPECT_EQ(written.find("content/CVE-2024-29.xml"), first);
    auto files = someFiles(30);
    files[path].digests["sha256"] = *digestOf("sha256", "second");
    ASSERT_EQ(written.publish(files), "");
    EXPECT_EQ(written.names,
              (std::vector<std::string>{"2." + binOf(path) + ".json", "3.snapshot.json", "timestamp.json"}));
    EXPECT_EQ(written.find(path), *digestOf("sha256", "second"));
    ASSERT_EQ(written.publish(someFiles(2)), "");
    EXPECT_EQ(written.find(path), "none");
    EXPECT_EQ(written.open()->targets().size(), 2U);
}

TEST(TrustWriter, RefreshesWithTheKeysItHas) {
    Written written;
    ASSERT_EQ(written.publish(someFiles(3)), "");
    written.options.keys = {testKey(3)};
    written.options.now += 6 * kDay;
    EXPECT_EQ(written.publish(std::nullopt), "");
    written.options.now += 6 * kDay;
    EXPECT_EQ(written.publish(std::nullopt), "");
    EXPECT_EQ(written.find("content/CVE-2024-1.xml"), *digestOf("sha256", "first"));
    // A snapshot that is due is named, and signed once its key is there.
    written.options.now += 6 * kDay;
    auto writer = written.open();
    ASSERT_TRUE(writer->seal());
    EXPECT_EQ(writer->overdue(), std::vector<std::string>{"snapshot"});
    written.options.keys.push_back(testKey(2));
    EXPECT_EQ(written.publish(std::nullopt), "");
    EXPECT_EQ(written.names, (std::vector<std::string>{"2.snapshot.json", "timestamp.json"}));
    // Targets need their own key; so does a timestamp.
    EXPECT_NE(written.publish(someFiles(4)).find("targets needs 1 of its keys"), std::string::npos);
    written.options.keys = {testKey(2)};
    EXPECT_NE(written.publish(std::nullopt).find("timestamp needs 1 of its keys"), std::string::npos);
}

TEST(TrustWriter, ReplacesKeysOfEveryRole) {
    struct Case {
        const char* role;
        std::size_t old;
    };
    for (const Case& one : {Case{"root", 0}, Case{"targets", 1}, Case{"snapshot", 2}, Case{"timestamp", 3}}) {
        SCOPED_TRACE(one.role);
        Written written;
        ASSERT_EQ(written.publish(someFiles(30)), "");
        ASSERT_EQ(written.find("content/CVE-2024-1.xml"), *digestOf("sha256", "first"));
        // Two of two new keys in place of the old one.
        const RootChange change{
            one.role, {testKey(20).publicKey(), testKey(21).publicKey()}, {testKey(one.old).id()}, 2};
        const std::string before = written.newest["root"];
        written.options.keys.push_back(testKey(20));
        auto next = changedRoot(before, change, written.options);
        ASSERT_TRUE(next);
        if (std::string(one.role) == "root") {
            EXPECT_FALSE(requireNextRoot(before, *next));
            next = withRootSignatures(before, *next, {testKey(21)});
        }
        ASSERT_TRUE(requireNextRoot(before, *next));
        const Root old = written.open()->root();
        written.setRoot(*next);
        if (std::string(one.role) != "root") {
            EXPECT_NE(written.publish(someFiles(30)), "");
        }
        written.options.keys.push_back(testKey(21));
        auto writer = written.open();
        writer->signForToo(old);
        ASSERT_TRUE(writer->setTargets(writer->targets()));
        ASSERT_TRUE(writer->seal());
        // Clients accept it before and after they learn the new root.
        EXPECT_TRUE(writer->isAcceptedBy(old));
        EXPECT_TRUE(writer->isAcceptedBy(writer->root()));
        written.keep(*writer);
        EXPECT_EQ(written.find("content/CVE-2024-1.xml"), *digestOf("sha256", "first"));
    }
}

TEST(TrustWriter, RefusesWhatItCannotWrite) {
    const auto rootFailure = [](const RootChange& change) {
        const Written written;
        const auto next = changedRoot(written.newest.at("root"), change, written.options);
        return next ? "" : next.error().text;
    };
    EXPECT_NE(rootFailure({"root", {}, {"abc"}, {}}).find("has no key abc"), std::string::npos);
    EXPECT_NE(rootFailure({"root", {}, {}, 2}).find("would have 1 keys, of which 2"), std::string::npos);
    EXPECT_NE(rootFailure({"root", {}, {testKey(0).id()}, {}}).find("would have 0"), std::string::npos);
    Json form = testKey(0).publicKey();
    std::string digits = form["keyval"]["public"];
    std::transform(digits.begin(), digits.end(), digits.begin(),
                   [](unsigned char c) { return std::toupper(c); });
    form["keyval"]["public"] = digits;
    EXPECT_NE(rootFailure({"root", {form}, {}, 2}).find("one key in two forms"), std::string::npos);
    Written written;
    EXPECT_NE(written.publish(std::nullopt).find("there are no targets yet"), std::string::npos);
    PublicKeys keys{{"root", {testKey(0).publicKey()}}};
    EXPECT_FALSE(firstRoot(keys, written.options));
    written.newest["targets"] = "{}";
    EXPECT_FALSE(written.open());
    written.newest["targets"] = written.newest["root"];
    EXPECT_FALSE(written.open());
}

}  // namespace

}  // namespace zelor::trust
