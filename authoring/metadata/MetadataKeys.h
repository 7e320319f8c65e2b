#pragma once

#include <string>
#include <vector>

#include "trust/PrivateKey.h"
#include "trust/RepositoryWriter.h"

namespace zelor::authoring {

/// A private key that signs metadata, and what the name of its file says.
struct MetadataKey {
    trust::PrivateKey key;
    std::string role;    ///< which role of a new repository it is for
    std::string holder;  ///< who has it, "" when the name does not say
};

/// The keys of a directory: files named ROLE.key or ROLE-HOLDER.key. Throws UsageError, which names file and
/// remedy, when there is none or one cannot be used.
std::vector<MetadataKey> readMetadataKeys(const std::string& directory);

/// Those keys alone.
std::vector<trust::PrivateKey> privateKeys(const std::vector<MetadataKey>& keys);
/// Their public halves by role, with the holder as a note.
trust::PublicKeys publicKeys(const std::vector<MetadataKey>& keys);

/// The public key in a PEM file, or of the private key in one, with the holder that the file's name gives.
/// Throws UsageError.
trust::Json readPublicKey(const std::string& file);

/// Makes a key for each role and writes it as ROLE.key (mode 0600) and ROLE.pem, with "-HOLDER" behind the
/// role if there is one. Throws UsageError when one of the files exists, or for an unusable holder.
void writeMetadataKeys(const std::string& directory, const std::vector<std::string>& roles,
                       const std::string& holder, const std::string& scheme);

/// How messages name the key of a root's content: the first digits of its id, and its holder.
std::string keyLabel(const trust::Json& rootContent, const std::string& id);

/// The four roles, in the order in which they are shown.
const std::vector<std::string>& roleNames();

}  // namespace zelor::authoring
