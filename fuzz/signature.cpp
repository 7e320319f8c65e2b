#include "agent/trust/Signature.h"

#include <algorithm>

#include "Support.h"
#include "tests/support/SigningKey.h"

namespace {

using zelor::fuzz::require;
using zelor::test::SigningKey;

const std::string kSignedText = "what the author signed";

struct Keys {
    Keys() {
        for (const SigningKey& key : {SigningKey::rsa(), SigningKey::ec()}) {
            files[count] = dir / ("key" + std::to_string(count) + ".pem");
            zelor::test::writeFile(files[count], key.publicPem());
            signatures[count++] = key.sign(kSignedText);
        }
    }
    zelor::test::TempDir dir;
    std::string files[2], signatures[2];
    std::size_t count = 0;
};

/// The good signature with the bytes of `changes` laid over it, and what is behind them.
std::string changed(std::string signature, const std::string& changes) {
    signature.resize(std::max(signature.size(), changes.size()));
    for (std::size_t i = 0; i < changes.size(); ++i)
        signature[i] = static_cast<char>(signature[i] ^ changes[i]);
    return signature;
}

}  // namespace

// The first byte selects what the rest is: changes of a good signature, a signature, or the text of a key.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const Keys kKeys;
    if (size == 0) return 0;
    const std::string text = zelor::fuzz::textOf(data + 1, size - 1);
    if (data[0] == 'k') {
        const std::string file = kKeys.dir / "hostile.pem";
        zelor::test::writeFile(file, text);
        const auto verdict = zelor::agent::verifyBytes(kSignedText, kKeys.signatures[0], file);
        require(!verdict.good && !verdict.reason.empty(), "no other key accepts the signature");
        return 0;
    }
    for (std::size_t i = 0; i < kKeys.count; ++i) {
        const std::string signature = data[0] == 'c' ? changed(kKeys.signatures[i], text) : text;
        const auto verdict = zelor::agent::verifyBytes(kSignedText, signature, kKeys.files[i]);
        require(verdict.good == (signature == kKeys.signatures[i]), "the one signature is good, no other");
        require(verdict.good == verdict.reason.empty(), "a refusal has a reason");
    }
    return 0;
}
