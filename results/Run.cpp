#include "results/Run.h"

#include <time.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "results/Text.h"

namespace zelor::results {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr double kMostSeconds = 1e9;

/// Takes members of an object; each failure names the member.
class Members {
  public:
    Members(const json& object, std::string place) : object_(object), place_(std::move(place)) {
        if (!object.is_object())
            fail(place_.empty() ? "the text is not an object" : place_ + " is not an object");
    }

    bool has(const char* name) const { return object_.contains(name); }
    const json& at(const char* name) const {
        const auto found = object_.find(name);
        if (found == object_.end()) fail("it has no member " + named(name));
        return *found;
    }
    std::string text(const char* name) const {
        if (!at(name).is_string()) fail(named(name) + " is not a string");
        return at(name).get<std::string>();
    }
    std::string textOr(const char* name) const { return has(name) ? text(name) : ""; }
    bool flag(const char* name) const {
        if (!at(name).is_boolean()) fail(named(name) + " is not true or false");
        return at(name).get<bool>();
    }
    double seconds(const char* name) const {
        const double seconds = at(name).is_number() ? at(name).get<double>() : -1;
        if (!(seconds >= 0 && seconds <= kMostSeconds)) fail(named(name) + " is not a number of seconds");
        return seconds;
    }
    ProgressValue value(const char* name) const {
        if (!at(name).is_number_unsigned()) fail(named(name) + " is not a value of a request");
        return at(name).get<ProgressValue>();
    }
    system_clock::time_point time(const char* name) const {
        const std::string written = text(name);
        tm utc{};
        const bool isTime = ::strptime(written.c_str(), "%Y-%m-%dT%H:%M:%SZ", &utc) != nullptr;
        const auto time = system_clock::from_time_t(isTime ? ::timegm(&utc) : 0);
        if (!isTime || utcText(time) != written)
            fail(named(name) + " is not a time such as 2026-11-21T10:15:02Z");
        return time;
    }
    Verified verified() const {
        constexpr const char* kName = "verified";
        if (!has(kName)) return Verified::noCheck;
        if (at(kName).is_null()) return Verified::unknown;
        return flag(kName) ? Verified::holds : Verified::fails;
    }
    Members object(const char* name) const { return {at(name), named(name)}; }
    [[noreturn]] void fail(const std::string& what) const { throw std::invalid_argument(what); }

  private:
    std::string named(const char* name) const {
        return (place_.empty() ? "" : place_ + ": ") + '"' + name + '"';
    }

    const json& object_;
    std::string place_;
};

milliseconds inMilliseconds(double seconds) {
    return milliseconds(std::llround(seconds * 1000));
}

std::string detailOf(const Members& members) {
    std::string detail = members.textOr("reason");
    const std::string warning = members.textOr("warning");
    if (!warning.empty()) detail += (detail.empty() ? "" : "; ") + warning;
    if (!members.has("beforeCancel")) return detail;
    const Members before = members.object("beforeCancel");
    const std::string reason = before.textOr("reason");
    return detail + (detail.empty() ? "" : "; ") + "before the cancel " + stateName(before.value("value")) +
           (reason.empty() ? "" : ": " + reason);
}

Request requestOf(const std::string& key, const json& object) {
    const Members members(object, "the request \"" + base::printable(key) + '"');
    Request request;
    request.key = key;
    request.identifier = members.text("identifier");
    request.value = members.value("value");
    request.detail = detailOf(members);
    request.warned = members.has("warning");
    const std::string applied = members.textOr("applied");
    request.appliedNow = applied == "now";
    request.appliedBefore = applied == "before";
    if (members.has("begin")) request.begin = inMilliseconds(members.seconds("begin"));
    request.duration = inMilliseconds(members.seconds("seconds"));
    request.verified = members.verified();
    request.verifiedReason = members.textOr("verifiedReason");
    return request;
}

Run runOf(const Members& members) {
    const json& schema = members.at("schema");
    if (schema != kResultSchema)
        members.fail("its format is " + schema.dump(-1, ' ', true, json::error_handler_t::replace) +
                     ", not " + std::to_string(kResultSchema) +
                     ", the one of this version of zelor-remediate");
    Run run;
    run.version = members.text("version");
    run.host = members.text("host");
    const Members platform = members.object("platform");
    run.platformName = platform.text("name");
    run.platformVersion = platform.text("version");
    run.platformCpe = platform.text("cpe");
    run.started = members.time("started");
    run.finished = members.time("finished");
    run.seconds = members.seconds("seconds");
    run.rebootNeeded = members.flag("rebootNeeded");
    run.restartNeededByThisRun = members.flag("restartNeededByThisRun");
    run.scanNeeded = members.flag("scanNeeded");
    if (members.has("contentSigned")) run.contentSigned = members.time("contentSigned");
    run.end = members.text("end");
    const json& requests = members.at("requests");
    if (!requests.is_object() || requests.empty()) members.fail("it has no requests");
    for (const auto& [key, request] : requests.items())
        run.requests.push_back(requestOf(key, request));
    return run;
}

}  // namespace

std::chrono::system_clock::time_point endOf(const Run& run, const Request& request) {
    const milliseconds end = request.begin + request.duration;
    return end.count() == 0 ? run.finished : run.started + end;
}

base::Result<Run> parseRun(const std::string& text) {
    try {
        return runOf({json::parse(text), ""});
    } catch (const json::parse_error& e) {
        return base::failure("byte " + std::to_string(e.byte) + ": not valid JSON in UTF-8");
    } catch (const json::exception&) {
        return base::failure("a number in it is too large");
    } catch (const std::invalid_argument& e) {
        return base::failure(e.what());
    }
}

}  // namespace zelor::results
