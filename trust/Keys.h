#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/Result.h"
#include "trust/Json.h"

namespace zelor::trust {

/// A public key as metadata has it: nothing but its id was checked.
struct Key {
    std::string type;    ///< "ecdsa", "rsa" or "ed25519"; others verify nothing
    std::string scheme;  ///< "ecdsa-sha2-nistp256", "rsassa-pss-sha256" or "ed25519"
    std::string value;   ///< PEM, or hexadecimal digits of the raw key (Ed25519) or the point (P-256); or ""
};

/// Public keys by id.
using Keys = std::map<std::string, Key>;

/// Who may sign for a role, and how many of them must.
struct RoleKeys {
    std::set<std::string> ids;
    std::int64_t threshold = 1;
};

/// One signature of a metadata file. `bytes` is empty when it was no hexadecimal text.
struct Signature {
    std::string keyId;
    std::string bytes;
};

/// The id of a key: the SHA-256 digest of the canonical form of its three members; "" without a canonical
/// form.
std::string keyId(const Json& key);

/// Reads an object of keys by id. An id must be the digest of its key: as it is written, of type, scheme and
/// value alone (then other members are notes of the repository), or as repositories wrote it before ECDSA
/// keys had a type of their own. Faults go to `reader`.
Keys readKeys(JsonReader& reader, const Json& keys);

/// Whether signatures by `key` can be verified: it can be read, and is of the kind that its scheme needs.
bool isUsable(const Key& key);

/// Bytes that are the same for every form of one key; "" for one that is not usable.
std::string identityOf(const Key& key);

/// True when `signature` is one of `bytes` by `key`. `identity`, when given, becomes what two forms of one
/// key have in common.
bool verifies(const Key& key, std::string_view bytes, std::string_view signature,
              std::string* identity = nullptr);

/// Whether at least the threshold of the role's keys signed `bytes`. A key counts once, also under two ids.
base::Check checkSignatures(std::string_view bytes, const std::vector<Signature>& signatures,
                            const RoleKeys& role, const Keys& keys);

/// For OpenSSL's functions that read PEM, which would otherwise ask for a pass phrase on the terminal: an
/// encrypted key is refused.
int noPassPhrase(char* buffer, int size, int writing, void* data);

}  // namespace zelor::trust
