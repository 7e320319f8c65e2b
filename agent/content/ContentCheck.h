#pragma once

#include <string>

namespace zelor::agent {

/// How content says that a block of it has taken effect can be proven. Names are of the form that `problemOf`
/// accepts.
struct ContentCheck {
    /// What is looked at.
    enum class Kind {
        script,   ///< the signed script `name` exits with 0
        receipt,  ///< the package `name` has a receipt
        bundle,   ///< the bundle directory `name` exists
        other     ///< a kind that this version does not know
    };
    std::string eriId;
    Kind kind = Kind::other;
    std::string name;
    std::string version;  ///< the least version of the package or bundle; "" for any
};

/// Why content must not have such a check, in words that follow its place; "" when it may. Pure.
std::string problemOf(const ContentCheck& check);

}  // namespace zelor::agent
