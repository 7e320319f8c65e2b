#include <boost/filesystem/operations.hpp>
#include <iostream>

#include "authoring/Commands.h"
#include "authoring/manifest/ManifestFile.h"
#include "authoring/publish/Publisher.h"
#include "authoring/publish/SigningKey.h"

namespace zelor::authoring {

namespace {

std::string written(const std::string& all, std::size_t count, std::size_t gone, const char* how) {
    std::string text = all + " (" + std::to_string(count) + " written";
    if (gone != 0) text += ", " + std::to_string(gone) + how;
    return text + ')';
}

}  // namespace

int runKeygen(const KeygenOptions& options) {
    writeKeyPair(SigningKey::generate(options.type == "rsa" ? SigningKey::Type::rsa : SigningKey::Type::ec),
                 options.out);
    std::cout << options.out << "/repository.key  keep this secret; publish signs with it\n"
              << options.out << "/repository.pem  give this to agents as TrustedKey\n";
    return exitStatus::kGood;
}

int runPublish(const PublishOptions& options) {
    const SigningKey key = SigningKey::load(options.key);
    Manifest manifest =
        readManifest(options.manifest, {"", readPublishState(publishStateFile(options.out)), options.strict});
    const Publication publication{options.out, boost::filesystem::canonical(options.manifest).string(),
                                  options.only, options.prune};
    const PublishSummary summary = publish(std::move(manifest), key, publication,
                                           [](const std::string& line) { std::cout << line << std::endl; });
    std::cout << written(amount(summary.entries, "entry", "entries"), summary.entriesWritten,
                         summary.entriesWithdrawn, " withdrawn")
              << ", "
              << written(amount(summary.patches, "patch", "patches"), summary.patchesWritten,
                         summary.patchesRemoved, " removed")
              << '\n';
    return exitStatus::kGood;
}

}  // namespace zelor::authoring
