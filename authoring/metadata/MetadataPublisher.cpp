#include "authoring/metadata/MetadataPublisher.h"

#include <algorithm>
#include <ctime>

#include "authoring/UsageError.h"
#include "base/PrintableText.h"

namespace zelor::authoring {

namespace {}  // namespace

std::map<std::string, trust::Time> lifetimesOf(const std::vector<std::string>& texts) {
    std::map<std::string, trust::Time> lifetimes;
    const auto& roles = roleNames();
    for (const std::string& text : texts) {
        const auto equals = text.find('=');
        const std::string role = text.substr(0, equals);
        const std::string days = equals == std::string::npos ? "" : text.substr(equals + 1);
        const bool number =
            !days.empty() && days.size() <= 4 && days.find_first_not_of("0123456789") == std::string::npos;
        if (std::find(roles.begin(), roles.end(), role) == roles.end() || !number || std::stoi(days) == 0)
            throw UsageError("--expires \"" + base::printable(text) +
                             "\" is not of the form ROLE=DAYS, such as timestamp=7, with 1 to 9999 days");
        lifetimes[role] = std::stoi(days) * trust::kDay;
    }
    return lifetimes;
}

trust::WriterOptions writerOptions(const MetadataOptions& options) {
    trust::WriterOptions writer;
    writer.now = std::time(nullptr);
    writer.keys = privateKeys(readMetadataKeys(options.keys));
    for (const auto& [role, lifetime] : options.lifetimes)
        writer.lifetimes[role] = lifetime;
    return writer;
}

MetadataPublisher::MetadataPublisher(const std::string& repository, const MetadataOptions& options)
    : directory_(repository) {
    const trust::WriterOptions settings = writerOptions(options);
    now_ = settings.now;
    trust::RoleFiles files;
    if (directory_.exists()) {
        files = directory_.newest();
    } else {
        const auto root = trust::firstRoot(publicKeys(readMetadataKeys(options.keys)), settings);
        if (!root) throw UsageError(options.keys + ": " + root.error().text);
        firstRoot_ = *root;
        files[trust::kRootRole] = *root;
    }
    auto writer = trust::RepositoryWriter::open(files, settings);
    if (!writer) throw UsageError(writer.error().text);
    if (const auto able = writer->requireKeys(); !able)
        throw UsageError(options.keys + ": " + able.error().text);
    writer_ = *std::move(writer);
}

void MetadataPublisher::list(const std::map<std::string, trust::TargetFile>& targets) {
    base::Check done = writer_->setTargets(targets);
    if (done) done = writer_->seal();
    if (!done) throw std::runtime_error(done.error().text);
}

void MetadataPublisher::write() {
    if (firstRoot_) directory_.writeRoot(1, *firstRoot_);
    directory_.write(writer_->written());
    directory_.removeSuperseded(now_);
}

}  // namespace zelor::authoring
