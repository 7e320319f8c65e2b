#include <boost/filesystem/path.hpp>
#include <iostream>

#include "agent/Files.h"
#include "authoring/Commands.h"
#include "authoring/Manifest.h"
#include "authoring/Publisher.h"
#include "authoring/SigningKey.h"
#include "authoring/UsageError.h"
#include "platform/Strings.h"

namespace zelor {

namespace {

constexpr std::size_t manifestBytesLimit = 256U << 20U;

Manifest readManifest(const std::string& path) {
    std::string text;
    try {
        text = readBounded(path, manifestBytesLimit, Links::follow);
    } catch (const std::exception& e) {
        throw UsageError(std::string(e.what()) + "; name the manifest to publish");
    }
    const std::string folder = boost::filesystem::path(path).parent_path().string();
    Findings findings;
    Manifest manifest = parseManifest(text, folder.empty() ? "." : folder,
                                      boost::filesystem::path(path).filename().string(), findings);
    // A field that could not be read would only make further, misleading findings.
    if (!anyError(findings)) findings = manifestFindings(manifest);
    std::cerr << findingsText(findings);
    if (anyError(findings)) throw UsageError("nothing was published: mend the errors above");
    return manifest;
}

}  // namespace

int runKeygen(const KeygenOptions& options) {
    writeKeyPair(SigningKey::generate(options.type == "rsa" ? SigningKey::Type::rsa : SigningKey::Type::ec),
                 options.out);
    std::cout << options.out << "/repository.key  keep this secret; publish signs with it\n"
              << options.out << "/repository.pem  give this to agents as TrustedKey\n";
    return exitStatus::good;
}

int runPublish(const PublishOptions& options) {
    const SigningKey key = SigningKey::load(options.key);
    const PublishSummary summary =
        publish(readManifest(options.manifest), key, options.out,
                [](const std::string& name) { std::cout << "wrote " << name << std::endl; });
    std::cout << summary.entries << " entries (" << summary.entriesWritten << " written), " << summary.patches
              << " patches (" << summary.patchesWritten << " written)\n";
    return exitStatus::good;
}

}  // namespace zelor
