#include "base/Spawn.h"

namespace zelor::base {

SpawnAttributes::SpawnAttributes(const sigset_t& blocked, const sigset_t& defaults, int flags) {
    posix_spawnattr_init(&attributes_);
    posix_spawnattr_setsigmask(&attributes_, &blocked);
    posix_spawnattr_setsigdefault(&attributes_, &defaults);
    const int all = flags | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
    posix_spawnattr_setflags(&attributes_, static_cast<short>(all));
}

std::vector<char*> argumentPointers(const std::vector<std::string>& words) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (const std::string& word : words)
        pointers.push_back(const_cast<char*>(word.c_str()));
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace zelor::base
