#include "Support.h"
#include "trust/Client.h"
#include "trust/PathPattern.h"
#include "trust/PrivateKey.h"

namespace {

using zelor::fuzz::require;
using namespace zelor::trust;

constexpr std::size_t kLimit = 1U << 20U;

/// What was read fits what can be kept and asked for.
void readEveryKind(const Json& content) {
    (void)readRoot(content);
    (void)readTimestamp(content);
    (void)readSnapshot(content);
    const auto targets = readTargets(content);
    if (!targets) return;
    for (const auto& [path, file] : targets->files) {
        require(isTargetPath(path) && !file.digests.empty(), "a target has a path and a digest");
        require(percentEncodedPath(path).find("..%") != 0, "no path leads upwards");
        for (const Delegation& delegation : targets->delegations)
            (void)delegation.covers(path, *digestOf("sha256", path));
    }
    for (const Delegation& delegation : targets->delegations)
        require(percentEncoded(delegation.name).find('/') == std::string::npos, "a role is a file name");
}

void checkForm(const std::string& text) {
    const auto json = parseJson(text, kLimit);
    if (!json) return require(!json.error().text.empty(), "a refusal has a reason");
    if (const auto canonical = canonicalJson(*json)) {
        const auto again = parseJson(json->dump(), kLimit * 8);
        require(again && canonicalJson(*again).value() == *canonical, "there is one canonical form");
    }
    JsonReader reader;
    if (json->is_object()) (void)readKeys(reader, *json);
}

/// Serves every name with the same bytes.
struct OneFile : Fetcher, Store {
    std::string bytes;
    int replaced = 0;
    zelor::base::Result<Fetched> fetch(const std::string&, std::size_t) override {
        return Fetched{true, bytes};
    }
    zelor::base::Result<std::optional<std::string>> read(const std::string&, std::size_t) override {
        return std::optional<std::string>(bytes);
    }
    zelor::base::Check replace(const std::string&, const std::string&) override {
        ++replaced;
        return {};
    }
    zelor::base::Check remove(const std::string&) override { return {}; }
};

}  // namespace

// A metadata file: as it is; and signed by a key that is no part of it, so that what is behind the signature
// is read too.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = zelor::fuzz::textOf(data, size);
    checkForm(text);
    if (const auto file = readSignedFile(text, kLimit)) {
        readEveryKind(file->content);
        static const PrivateKey kKey = PrivateKey::make("ed25519").value();
        const Json& json = kKey.publicKey();
        const Keys keys = {{kKey.id(), {json["keytype"], json["scheme"], json["keyval"]["public"]}}};
        const RoleKeys role{{kKey.id()}, 1};
        require(!checkTargets("a", role, keys, text, nullptr, std::nullopt, {}), "nobody else signs");
        const auto own = PrivateKey::signedFile(file->content, std::vector<PrivateKey>{kKey});
        require(own && checkTargets("a", role, keys, *own, nullptr, std::nullopt, {}).has_value() ==
                           readTargets(file->content).has_value(),
                "what is signed and well-formed is accepted");
    }
    OneFile world;
    world.bytes = text;
    Client client(world, world, {0, {}});
    require(!client.refresh(), "one file is not a repository");
    require(world.replaced == 0, "and nothing is kept of it");
    return 0;
}
