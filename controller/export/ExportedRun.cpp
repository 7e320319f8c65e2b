#include "controller/export/ExportedRun.h"

#include <time.h>

#include <cmath>
#include <nlohmann/json.hpp>

#include "agent/trust/Sha256.h"
#include "base/PrintableText.h"
#include "controller/InputError.h"
#include "controller/InputFile.h"
#include "controller/Text.h"
#include "controller/report/ReportJson.h"

namespace zelor::controller {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr std::size_t kResultsBytesLimit = std::size_t{1} << 30U;
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

ExportedRequest requestOf(const std::string& key, const json& object) {
    const Members members(object, "the request \"" + base::printable(key) + '"');
    ExportedRequest request;
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
    return request;
}

ExportedRun runOf(const Members& members) {
    const json& schema = members.at("schema");
    if (schema != kResultSchema)
        members.fail("its format is " + schema.dump(-1, ' ', true, json::error_handler_t::replace) +
                     ", not " + std::to_string(kResultSchema) +
                     ", the one of this version of zelor-remediate");
    ExportedRun run;
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
    run.end = members.text("end");
    const json& requests = members.at("requests");
    if (!requests.is_object() || requests.empty()) members.fail("it has no requests");
    for (const auto& [key, request] : requests.items())
        run.requests.push_back(requestOf(key, request));
    return run;
}

std::string digestOf(const std::vector<std::string>& texts) {
    constexpr std::size_t kDigits = 32;
    agent::Sha256 digest;
    for (const std::string& text : texts) {
        digest.add(std::to_string(text.size()) + ':');  // so that no two lists are hashed alike
        digest.add(text);
    }
    return digest.finish().sha256.substr(0, kDigits);
}

}  // namespace

system_clock::time_point endOf(const ExportedRun& run, const ExportedRequest& request) {
    const milliseconds end = request.begin + request.duration;
    return end.count() == 0 ? run.finished : run.started + end;
}

std::string requestDigest(const ExportedRequest& request) {
    return digestOf({request.key, request.identifier});
}

std::string commandDigest(const ExportedRun& run, const ExportedRequest& request) {
    return digestOf({run.host, utcText(run.started), request.key, request.identifier});
}

ExportedRun parseResults(const std::string& text, const std::string& name) {
    constexpr const char* kRemedy = "; name a file that zelor-remediate run --json wrote";
    try {
        return runOf({json::parse(text), ""});
    } catch (const json::parse_error& e) {
        throw InputError(name + ", byte " + std::to_string(e.byte) + ": not valid JSON in UTF-8" + kRemedy);
    } catch (const std::invalid_argument& e) {
        throw InputError(name + ": " + e.what() + kRemedy);
    }
}

ExportedRun loadResults(const std::string& path) {
    return parseResults(readInput(path, {kResultsBytesLimit, "the results of a run", "export fewer at once"}),
                        inputName(path));
}

}  // namespace zelor::controller
