#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <ctime>
#include <iostream>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/manifest/ManifestFile.h"
#include "authoring/metadata/MetadataKeys.h"
#include "authoring/metadata/MetadataStatus.h"
#include "authoring/publish/Publisher.h"
#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

namespace {

std::string written(const std::string& all, std::size_t count, std::size_t gone, const char* how) {
    std::string text = all + " (" + std::to_string(count) + " written";
    if (gone != 0) text += ", " + std::to_string(gone) + how;
    return text + ')';
}

int keygenForRoles(const KeygenOptions& options) {
    const std::string scheme = options.type == "rsa"       ? "rsassa-pss-sha256"
                               : options.type == "ed25519" ? "ed25519"
                                                           : "ecdsa-sha2-nistp256";
    const bool all = std::find(options.roles.begin(), options.roles.end(), "all") != options.roles.end();
    const std::vector<std::string>& roles = all ? roleNames() : options.roles;
    writeMetadataKeys(options.out, roles, options.holder, scheme);
    for (const std::string& role : roles) {
        const std::string name =
            options.out + '/' + role + (options.holder.empty() ? "" : '-' + options.holder);
        std::cout << name << ".key  keep this secret; it signs the role " << role << '\n';
    }
    return exitStatus::kGood;
}

}  // namespace

int runKeygen(const KeygenOptions& options) {
    if (!options.roles.empty()) return keygenForRoles(options);
    if (options.type == "ed25519" || !options.holder.empty())
        throw UsageError("--type ed25519 and --holder are for keys of metadata; name a --role");
    const SigningKey key =
        SigningKey::generate(options.type == "rsa" ? SigningKey::Type::rsa : SigningKey::Type::ec);
    writeKeyPair(options.out, "repository", key.privatePem(), key.publicPem());
    std::cout << options.out << "/repository.key  keep this secret; publish signs with it\n"
              << options.out << "/repository.pem  give this to agents as TrustedKey\n";
    return exitStatus::kGood;
}

int runPublish(const PublishOptions& options) {
    const SigningKey key = SigningKey::load(options.key);
    Manifest manifest =
        readManifest(options.manifest, {"", readPublishState(publishStateFile(options.out)), options.strict});
    Publication publication{options.out, boost::filesystem::canonical(options.manifest).string(),
                            options.only, options.prune};
    if (!options.metadataKeys.empty())
        publication.metadata = MetadataOptions{options.metadataKeys, lifetimesOf(options.expires)};
    const PublishSummary summary = publish(std::move(manifest), key, publication,
                                           [](const std::string& line) { std::cout << line << std::endl; });
    std::cout << written(amount(summary.entries, "entry", "entries"), summary.entriesWritten,
                         summary.entriesWithdrawn, " withdrawn")
              << ", "
              << written(amount(summary.patches, "patch", "patches"), summary.patchesWritten,
                         summary.patchesRemoved, " removed")
              << '\n';
    if (publication.metadata) std::cerr << expiryWarnings(MetadataDirectory(options.out), std::time(nullptr));
    return exitStatus::kGood;
}

}  // namespace zelor::authoring
