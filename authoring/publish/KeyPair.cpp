#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "authoring/UsageError.h"
#include "authoring/publish/SigningKey.h"
#include "base/Directories.h"
#include "base/Files.h"

namespace zelor::authoring {

namespace {

/// Creates the file; an existing one is never touched, whatever it is.
void createFile(const std::string& path, const std::string& text, mode_t mode) {
    base::UniqueFd file = base::openFile(path, O_WRONLY | O_CREAT | O_EXCL, mode);
    if (!file.valid()) throw std::runtime_error("cannot create " + path + ": " + base::errorText(errno));
    if (base::writeAll(file.get(), text) && base::flushToDisk(file.get()) && file.close()) return;
    const int error = errno;
    ::unlink(path.c_str());
    throw std::runtime_error("cannot write " + path + ": " + base::errorText(error));
}

}  // namespace

void writeKeyPair(const SigningKey& key, const std::string& folder) {
    const std::string privateFile = folder + "/repository.key", publicFile = folder + "/repository.pem";
    for (const std::string& path : {privateFile, publicFile}) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) == 0) {
            throw UsageError(path +
                             " is there already and keys are never overwritten; choose another --out, or "
                             "move the old pair away once no agent trusts it");
        }
    }
    if (!base::makeDirectories(folder))
        throw UsageError("cannot make " + folder + ": " + base::errorText(errno));
    createFile(publicFile, key.publicPem(), 0644);
    createFile(privateFile, key.privatePem(), 0600);
}

}  // namespace zelor::authoring
