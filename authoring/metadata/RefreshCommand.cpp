#include <iostream>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/metadata/MetadataPublisher.h"
#include "authoring/metadata/MetadataStatus.h"
#include "authoring/publish/RepositoryLock.h"

namespace zelor::authoring {

int runRefresh(const RefreshOptions& options) {
    const MetadataDirectory directory(options.repository);
    if (!directory.exists())
        throw UsageError(options.repository +
                         " has no metadata; zelor-content publish --metadata-keys writes it");
    const trust::WriterOptions settings = writerOptions({options.metadataKeys, lifetimesOf(options.expires)});
    const base::LockFile lock = lockRepository(options.repository);
    auto writer = trust::RepositoryWriter::open(directory.newest(), settings);
    base::Check done = writer ? writer->seal() : base::Check(tl::unexpected<base::Failure>(writer.error()));
    if (!done) throw UsageError(options.repository + ": " + done.error().text);
    directory.write(writer->written());
    directory.removeSuperseded(settings.now);
    for (const trust::NewFile& file : writer->written())
        std::cout << "wrote metadata/" << file.name << '\n';
    for (const std::string& role : writer->overdue())
        std::cerr << "zelor-content: the " << role
                  << " is due to be signed, and its key is not at hand; refresh with it before it expires\n";
    std::cerr << expiryWarnings(directory, settings.now);
    return exitStatus::kGood;
}

}  // namespace zelor::authoring
