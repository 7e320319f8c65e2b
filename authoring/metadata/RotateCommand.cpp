#include <unistd.h>

#include <boost/filesystem.hpp>
#include <iostream>

#include "authoring/Commands.h"
#include "authoring/UsageError.h"
#include "authoring/metadata/MetadataPublisher.h"
#include "authoring/metadata/RootChanges.h"
#include "authoring/publish/RepositoryLock.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kLeastIdDigits = 8;

template <class Value>
Value orRefuse(base::Result<Value> result) {
    if (!result) throw UsageError(result.error().text);
    return *std::move(result);
}

trust::Json contentOf(const std::string& root) {
    return orRefuse(trust::readSignedFile(root, kRootBytesLimit)).content;
}

/// The id of a key of the role that `text` names: a file, or the first digits of an id.
std::string removedId(const trust::RoleKeys& role, const std::string& text) {
    boost::system::error_code none;
    if (boost::filesystem::is_regular_file(text, none)) return trust::keyId(readPublicKey(text));
    std::string found;
    for (const std::string& id : role.ids) {
        if (text.size() < kLeastIdDigits || !base::hasBeginning(id, text)) continue;
        if (!found.empty()) throw UsageError(text + " begins the ids of two keys; give more digits");
        found = id;
    }
    if (found.empty())
        throw UsageError("the role has no key whose id begins with \"" + text + "\" (" +
                         std::to_string(kLeastIdDigits) +
                         " digits or more), and there is no such file; zelor-content status lists its keys");
    return found;
}

/// One change of the root, under the repository's lock.
class Rotation {
  public:
    explicit Rotation(const RotateOptions& options)
        : options_(options),
          directory_(options.repository),
          settings_(writerOptions({options.metadataKeys, lifetimesOf(options.expires)})),
          pending_(pendingRootFile(options.repository)) {
        if (!directory_.exists())
            throw UsageError(options.repository +
                             " has no metadata; zelor-content publish --metadata-keys writes it");
        files_ = directory_.newest();
        old_ = files_.at(trust::kRootRole);
    }

    int run() {
        const std::string next = options_.sign ? signedPending() : changed();
        std::cout << "The change of the root:\n" << rootChanges(contentOf(old_), contentOf(next));
        if (const auto complete = trust::requireNextRoot(old_, next); !complete) {
            base::replaceFile(pending_, next);
            std::cout << "It waits for signatures in " << pending_ << ":\n"
                      << whoCanSign(next) << "Each of them runs: zelor-content rotate " << options_.repository
                      << " --sign --metadata-keys DIR\n";
            return exitStatus::kGood;
        }
        publish(next);
        ::unlink(pending_.c_str());
        return exitStatus::kGood;
    }

  private:
    std::string signedPending() const {
        if (!boost::filesystem::exists(pending_))
            throw UsageError("no change waits for signatures in " + options_.repository);
        return orRefuse(
            trust::withRootSignatures(old_, base::readBounded(pending_, kRootBytesLimit), settings_.keys));
    }

    std::string changed() const {
        if (boost::filesystem::exists(pending_))
            throw UsageError("another change waits for signatures: complete it with --sign, or remove " +
                             pending_);
        const bool changes = !options_.add.empty() || !options_.remove.empty() || options_.threshold != 0;
        if (changes == options_.role.empty())
            throw UsageError(changes
                                 ? "--add, --remove and --threshold need a --role"
                                 : "--role needs --add, --remove or --threshold; without --role the root is "
                                   "renewed");
        trust::RootChange change{changes ? options_.role : trust::kRootRole, {}, {}, {}};
        const trust::Root root = orRefuse(trust::readRoot(contentOf(old_)));
        for (const std::string& file : options_.add)
            change.add.push_back(readPublicKey(file));
        for (const std::string& text : options_.remove)
            change.remove.insert(removedId(root.keysOf(change.role), text));
        if (options_.threshold != 0) change.threshold = options_.threshold;
        return orRefuse(trust::changedRoot(old_, change, settings_));
    }

    /// A line for each root key, of the old or the new root, that has not signed.
    std::string whoCanSign(const std::string& next) const {
        const trust::SignedFile file = orRefuse(trust::readSignedFile(next, kRootBytesLimit));
        std::set<std::string> signers, shown;
        for (const trust::Signature& signature : file.signatures)
            signers.insert(signature.keyId);
        std::string lines;
        for (const trust::Json& content : {contentOf(old_), file.content}) {
            for (const trust::Json& id : content["roles"][trust::kRootRole]["keyids"]) {
                const auto text = id.get<std::string>();
                if (signers.count(text) == 0 && shown.insert(text).second)
                    lines += "  not yet: " + keyLabel(content, text) + '\n';
            }
        }
        return lines;
    }

    void publish(const std::string& next) {
        files_[trust::kRootRole] = next;
        trust::RepositoryWriter writer = orRefuse(trust::RepositoryWriter::open(files_, settings_));
        const trust::Root before = orRefuse(trust::readRoot(contentOf(old_)));
        writer.signForToo(before);
        if (!isAllSigned(writer)) {
            base::Check done = writer.setTargets(writer.targets());
            if (done) done = writer.seal();
            if (!done)
                throw UsageError(
                    "after this change " + done.error().text +
                    "; or add the new key first, publish and refresh with it, and remove the old key "
                    "then");
        }
        const std::int64_t version = writer.root().version;
        // Whoever asks in between has the old root and the new files, or the new root and the old files.
        const bool filesFirst = writer.isAcceptedBy(before);
        if (!filesFirst) directory_.writeRoot(version, next);
        directory_.write(writer.written());
        if (filesFirst) directory_.writeRoot(version, next);
        std::cout << "wrote metadata/" << trust::metadataName(trust::kRootRole, version) << '\n';
        for (const trust::NewFile& file : writer.written())
            std::cout << "wrote metadata/" << file.name << '\n';
    }

    static bool isAllSigned(const trust::RepositoryWriter& writer) {
        for (const trust::RoleStatus& role : writer.roles()) {
            if (!role.isSigned) return false;
        }
        return true;
    }

    const RotateOptions& options_;
    MetadataDirectory directory_;
    trust::WriterOptions settings_;
    std::string pending_;
    trust::RoleFiles files_;
    std::string old_;
};

}  // namespace

int runRotate(const RotateOptions& options) {
    if (!boost::filesystem::is_directory(options.repository))
        throw UsageError(options.repository + " is not a directory; name the repository");
    const base::LockFile lock = lockRepository(options.repository);
    return Rotation(options).run();
}

}  // namespace zelor::authoring
