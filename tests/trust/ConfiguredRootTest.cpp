#include <gtest/gtest.h>

#include <functional>

#include "tests/trust/Repository.h"

namespace zelor::trust {

namespace {

TEST(Client, TellsANewConfiguredRootFromThatOfAnotherRepository) {
    enum class Kept {
        stays,      // all of it
        root,       // is replaced, and no other file
        withOthers  // the root, and which versions are old is forgotten
    };
    struct Case {
        const char* name;
        bool hasHistory;
        std::function<std::string(Repository&)> configured;
        Kept kept;
        bool anew = false;  ///< there is a line for the log
    };
    const auto renewed = [](Repository& r) {
        r.nextRoot();
        return r.files["6.root.json"];
    };
    const auto foreign = [](int version) {
        return [version](Repository& r) {
            r.setKeys("root", {testKey(40)});
            r.content["root"]["version"] = version;
            return PrivateKey::signedFile(r.content["root"], r.signers["root"]).value();
        };
    };
    const auto numbered = [](const char* name) { return [name](Repository& r) { return r.files[name]; }; };
    const Case cases[] = {
        {"the first", true, numbered("1.root.json"), Kept::stays},
        {"on the way", true, numbered("3.root.json"), Kept::stays},
        {"the kept one", false, numbered("5.root.json"), Kept::stays},
        {"before it, without a history", false, numbered("4.root.json"), Kept::stays},
        {"long before it, without a history", false, numbered("1.root.json"), Kept::withOthers, true},
        {"after it", true, renewed, Kept::root},
        {"after it, with another timestamp key", true,
         [&](Repository& r) {
             r.setKeys("timestamp", {testKey(41)});
             return renewed(r);
         },
         Kept::withOthers},
        {"foreign and older", true, foreign(1), Kept::withOthers, true},
        {"foreign of the same version", true, foreign(5), Kept::withOthers, true},
        {"foreign and newer", true, foreign(9), Kept::withOthers, true},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        World world;
        Repository& r = world.repository;
        for (std::size_t i = 0; i < 4; ++i) {
            const PrivateKey old = r.signers["root"][0];
            r.setKeys("root", {testKey(20 + i)});
            r.signers["root"].push_back(old);
            r.nextRoot();
            r.signers["root"].pop_back();
        }
        ASSERT_EQ(world.refresh(), "");
        if (!one.hasHistory) world.store.history.clear();
        const std::string configured = one.configured(r);
        const auto begun = world.client.initialise(configured);
        ASSERT_TRUE(begun);
        EXPECT_EQ(begun->find("accepted again") != std::string::npos, one.anew) << *begun;
        EXPECT_EQ(world.store.files["root"], one.kept == Kept::stays ? r.files["5.root.json"] : configured);
        for (const char* role : {"timestamp", "snapshot"})
            EXPECT_EQ(world.store.files.count(role) == 0, one.kept == Kept::withOthers);
        EXPECT_EQ(world.client.initialise(configured).value(), "");
    }
}

}  // namespace

}  // namespace zelor::trust
