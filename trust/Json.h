#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "base/Result.h"

/// JSON that somebody else wrote, and the one form of it that is signed.
namespace zelor::trust {

/// A JSON value; the members of an object are in the order of their names' bytes.
using Json = nlohmann::json;

/// How deep objects and arrays may be nested.
constexpr int kJsonDepthLimit = 32;

/// Reads `bytes`. Fails on more than `limit` bytes, on text that is not JSON in UTF-8, on nesting deeper than
/// kJsonDepthLimit, and on an object with two members of one name, which readers take in different ways.
base::Result<Json> parseJson(std::string_view bytes, std::size_t limit);

/// The canonical form of `value`, over which digests and signatures are made: members sorted by name, no
/// blanks, and in strings only `"` and `\` escaped. Fails on a number that is not an integer.
base::Result<std::string> canonicalJson(const Json& value);

/// Reads the members of objects. The first fault is kept in `fault`; what is missing or of another kind reads
/// as an empty value, so that a caller may read on and look at `fault` once. A value; one thread at a time.
class JsonReader {
  public:
    /// Says what is wrong, "" when all was well.
    std::string fault;

    /// Keeps `text` unless there is a fault already.
    void fail(const std::string& text) {
        if (fault.empty()) fault = text;
    }
    /// The member, which must be an object, an array or a string.
    const Json& object(const Json& parent, const std::string& name);
    const Json& array(const Json& parent, const std::string& name);
    std::string text(const Json& parent, const std::string& name);
    /// The member, which must be an integer of at least `least`.
    std::int64_t integer(const Json& parent, const std::string& name, std::int64_t least);
    /// The member, which may be missing, and must be a boolean otherwise.
    bool flag(const Json& parent, const std::string& name);
    /// `value`, which must be a string.
    std::string textOf(const Json& value, const std::string& name);

  private:
    const Json& member(const Json& parent, const std::string& name, Json::value_t type, const char* kind);
};

}  // namespace zelor::trust
