#include "trust/Json.h"

#include <limits>
#include <set>
#include <vector>

namespace zelor::trust {

namespace {

/// Watches a document while it is parsed.
class Structure {
  public:
    /// False once the document is refused; the parser then keeps nothing more of it.
    bool take(Json::parse_event_t event, const Json& parsed) {
        switch (event) {
            case Json::parse_event_t::object_start:
            case Json::parse_event_t::array_start:
                open_.emplace_back();
                if (open_.size() > static_cast<std::size_t>(kJsonDepthLimit))
                    fail("more than " + std::to_string(kJsonDepthLimit) + " nested levels");
                break;
            case Json::parse_event_t::object_end:
            case Json::parse_event_t::array_end:
                if (!open_.empty()) open_.pop_back();
                break;
            case Json::parse_event_t::key:
                if (!open_.empty() && !open_.back().insert(parsed.get<std::string>()).second)
                    fail("an object with two members of one name");
                break;
            case Json::parse_event_t::value:
                break;
        }
        return fault_.empty();
    }
    const std::string& fault() const { return fault_; }

  private:
    void fail(const std::string& text) {
        if (fault_.empty()) fault_ = text;
        open_.clear();
    }

    std::vector<std::set<std::string>> open_;
    std::string fault_;
};

void appendString(std::string& out, const std::string& text) {
    out += '"';
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
}

/// False when there is no canonical form.
bool append(std::string& out, const Json& value) {
    switch (value.type()) {
        case Json::value_t::object: {
            char separator = '{';
            for (const auto& [name, member] : value.items()) {
                out += separator;
                appendString(out, name);
                out += ':';
                if (!append(out, member)) return false;
                separator = ',';
            }
            out += value.empty() ? "{}" : "}";
            return true;
        }
        case Json::value_t::array: {
            char separator = '[';
            for (const Json& element : value) {
                out += separator;
                if (!append(out, element)) return false;
                separator = ',';
            }
            out += value.empty() ? "[]" : "]";
            return true;
        }
        case Json::value_t::string:
            appendString(out, value.get_ref<const std::string&>());
            return true;
        case Json::value_t::null:
        case Json::value_t::boolean:
        case Json::value_t::number_integer:
        case Json::value_t::number_unsigned:
            out += value.dump();
            return true;
        default:
            return false;
    }
}

const Json& nothing() {
    static const Json kNothing = Json::object();
    return kNothing;
}

}  // namespace

base::Result<Json> parseJson(std::string_view bytes, std::size_t limit) {
    if (bytes.size() > limit) return base::failure("it is larger than " + std::to_string(limit) + " bytes");
    Structure structure;
    Json json = Json::parse(
        bytes.begin(), bytes.end(),
        [&](int /*depth*/, Json::parse_event_t event, Json& parsed) { return structure.take(event, parsed); },
        false);
    if (!structure.fault().empty()) return base::failure("it has " + structure.fault());
    if (json.is_discarded()) return base::failure("it is not JSON in UTF-8");
    return json;
}

base::Result<std::string> canonicalJson(const Json& value) {
    std::string out;
    if (!append(out, value)) return base::failure("it has a number that is not an integer of 64 bits");
    return out;
}

const Json& JsonReader::member(const Json& parent, const std::string& name, Json::value_t type,
                               const char* kind) {
    const auto found = parent.is_object() ? parent.find(name) : parent.end();
    if (found != parent.end() && found->type() == type) return *found;
    fail("\"" + name + "\" is " + (found == parent.end() ? "missing" : std::string("not ") + kind));
    return nothing();
}

const Json& JsonReader::object(const Json& parent, const std::string& name) {
    return member(parent, name, Json::value_t::object, "an object");
}

const Json& JsonReader::array(const Json& parent, const std::string& name) {
    return member(parent, name, Json::value_t::array, "an array");
}

std::string JsonReader::text(const Json& parent, const std::string& name) {
    const Json& found = member(parent, name, Json::value_t::string, "a string");
    return found.is_string() ? found.get<std::string>() : std::string();
}

std::string JsonReader::textOf(const Json& value, const std::string& name) {
    if (value.is_string()) return value.get<std::string>();
    fail("\"" + name + "\" holds something that is not a string");
    return {};
}

std::int64_t JsonReader::integer(const Json& parent, const std::string& name, std::int64_t least) {
    const auto found = parent.is_object() ? parent.find(name) : parent.end();
    constexpr auto kMost = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const bool fits = found != parent.end() && found->is_number_integer() &&
                      (!found->is_number_unsigned() || found->get<std::uint64_t>() <= kMost);
    if (fits && found->get<std::int64_t>() >= least) return found->get<std::int64_t>();
    fail("\"" + name + "\" is not an integer of at least " + std::to_string(least));
    return least;
}

bool JsonReader::flag(const Json& parent, const std::string& name) {
    const auto found = parent.is_object() ? parent.find(name) : parent.end();
    if (found == parent.end()) return false;
    if (found->is_boolean()) return found->get<bool>();
    fail("\"" + name + "\" is neither true nor false");
    return false;
}

}  // namespace zelor::trust
