#pragma once

#include <set>
#include <string>
#include <string_view>

#include "trust/Rules.h"

namespace zelor::trust {

/// The roots that are known to have led to the kept one, itself included, by digest: so that a configured
/// root can be distinguished from one of another repository after every key was replaced. A value.
class RootHistory {
  public:
    RootHistory() = default;
    /// From what `text` returned. Damaged text has no roots that count.
    explicit RootHistory(const std::string& text);

    /// Whether a root, whose bytes these are, is one of them.
    bool has(std::string_view root) const { return digests_.count(digest(root)) != 0; }
    /// Makes a valid root, whose bytes these are, one of them.
    void add(std::string_view root) { digests_.insert(digest(root)); }
    /// A line for each root.
    std::string text() const;

  private:
    /// Of what is signed, whoever signed it.
    static std::string digest(std::string_view root);

    std::set<std::string> digests_;
};

/// How a configured root and the kept one belong together.
enum class RootRelation {
    keptLeadsOn,        ///< the kept one is the configured one, or came after it
    configuredLeadsOn,  ///< the configured one came after the kept one
    none                ///< not known to be of one repository
};

/// `history`, which has `kept`, decides; for a root that it does not have, who signed which. Both are valid
/// roots, with their bytes.
RootRelation relationOf(const Root& configured, std::string_view configuredBytes, const Root& kept,
                        std::string_view keptBytes, const RootHistory& history, const Limits& limits);

}  // namespace zelor::trust
