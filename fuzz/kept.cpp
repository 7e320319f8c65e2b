#include "Support.h"
#include "agent/content/IndexFiles.h"
#include "trust/PrivateKey.h"

namespace {

using zelor::fuzz::require;
using namespace zelor::trust;

/// A root of a repository of its own.
std::string newRoot() {
    const PrivateKey key = PrivateKey::make("ed25519").value();
    const Json role = {{"keyids", {key.id()}}, {"threshold", 1}};
    const Json root = {
        {"_type", "root"},
        {"spec_version", "1.0"},
        {"version", 1},
        {"expires", "2099-01-01T00:00:00Z"},
        {"keys", {{key.id(), key.publicKey()}}},
        {"roles", {{"root", role}, {"timestamp", role}, {"snapshot", role}, {"targets", role}}}};
    return PrivateKey::signedFile(root, std::vector<PrivateKey>{key}).value();
}

struct NoFetcher : Fetcher {
    zelor::base::Result<Fetched> fetch(const std::string& /*path*/, std::size_t /*maximum*/) override {
        return Fetched{};
    }
};

void checkRefusal(zelor::agent::IndexStore& store, const std::string& text) {
    require(store.refusal().empty() || store.refusal() == text, "a refusal is the file's text or none");
    for (const char* next : {"cause; remedy", "cause; remedy", ""}) {
        store.setRefusal(next);
        require(store.refusal() == next, "the next refusal takes the place of any");
    }
}

/// Whatever the file says, no root of another repository is taken for one that led to the kept one.
void checkHistory(zelor::agent::IndexStore& store) {
    static const std::string kOne = newRoot(), kOther = newRoot();
    NoFetcher none;
    Client client(none, store, {0, {}});
    require(store.replace("root", kOne).has_value(), "a root can be kept");
    const auto same = client.initialise(kOne);
    require(same.has_value() && same->empty(), "the kept root is of its own repository");
    require(RootHistory(store.rootHistory()).has(kOne), "and is known to be");
    const auto other = client.initialise(kOther);
    require(other.has_value() && !other->empty(), "another repository is noticed");
    RootHistory afresh;
    afresh.add(kOther);
    require(store.rootHistory() == afresh.text(), "nothing of the earlier one is left");
}

}  // namespace

// The two texts beside the kept metadata, parted by a zero byte: why an answer was refused, and the roots
// that led to the kept one.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::fuzz::QuietRoot kRoot;
    static const std::string kDirectory = kRoot / "metadata";
    std::string text = zelor::fuzz::textOf(data, size);
    const std::string refusal = zelor::fuzz::takeUntil(text, std::string(1, '\0'));
    boost::filesystem::create_directories(kDirectory);
    zelor::test::writeFile(kDirectory + "/refusal.txt", refusal);
    zelor::test::writeFile(kDirectory + "/roots.txt", text);
    const RootHistory history(text);
    require(RootHistory(history.text()).text() == history.text(), "a history has one text");
    zelor::agent::IndexStore store(kDirectory);
    checkRefusal(store, refusal);
    checkHistory(store);
    return 0;
}
