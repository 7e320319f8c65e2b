#include "authoring/publish/RepositoryLock.h"

#include <unistd.h>

#include <stdexcept>

#include "authoring/UsageError.h"

namespace zelor::authoring {

base::LockFile lockRepository(const std::string& repository) {
    try {
        base::LockFile lock(repository + "/.zelor-content.lock");
        if (lock.take()) {
            lock.note(::getpid());
            return lock;
        }
        const std::optional<long> other = lock.noted();
        throw UsageError("another publication to " + repository + " is active (" +
                         (other ? "process " + std::to_string(*other) + ", " : "") + "it holds " +
                         lock.path() + "); wait until it ends");
    } catch (const UsageError&) {
        throw;
    } catch (const std::runtime_error& e) {
        throw UsageError(e.what());
    }
}

}  // namespace zelor::authoring
