#pragma once

#include <map>
#include <optional>
#include <string>

#include "authoring/metadata/MetadataDirectory.h"
#include "authoring/metadata/MetadataKeys.h"
#include "trust/RepositoryWriter.h"

namespace zelor::authoring {

/// How metadata is signed.
struct MetadataOptions {
    std::string keys;  ///< directory of private keys
    std::map<std::string, trust::Time>
        lifetimes{};  ///< in seconds by role, where they differ from the defaults
};

/// Lifetimes from "ROLE=DAYS" texts. Throws UsageError for another text.
std::map<std::string, trust::Time> lifetimesOf(const std::vector<std::string>& texts);

/// Everything that the writer of metadata needs. Throws UsageError for keys that cannot be used.
trust::WriterOptions writerOptions(const MetadataOptions& options);

/// The metadata of one publication. Throws UsageError before anything was written, std::runtime_error after.
class MetadataPublisher {
  public:
    /// Reads the keys and the present metadata; without any, prepares a first root. Refuses keys that are not
    /// enough.
    MetadataPublisher(const std::string& repository, const MetadataOptions& options);

    /// Signs metadata that lists exactly these files, by path.
    void list(const std::map<std::string, trust::TargetFile>& targets);
    /// Puts the metadata in place, which makes it count, and removes what it superseded long ago.
    void write();

  private:
    MetadataDirectory directory_;
    std::optional<std::string> firstRoot_;
    std::optional<trust::RepositoryWriter> writer_;
    trust::Time now_ = 0;
};

}  // namespace zelor::authoring
