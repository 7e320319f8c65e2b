#include "controller/run/RunLog.h"

#include <algorithm>
#include <cstdlib>
#include <log4cpp/AppenderSkeleton.hh>
#include <memory>
#include <optional>

#include "base/Strings.h"
#include "collaborators/Logger.h"
#include "controller/Text.h"
#include "controller/live/RequestLabel.h"

namespace zelor::controller {

namespace {

constexpr std::size_t notesPerSubject = 20;
constexpr std::size_t noteBytes = 4096;
constexpr std::size_t subjectsLimit = 10000;
constexpr std::size_t outputLines = 40;

/// What stands behind `mark` in the line.
std::optional<std::string> behind(const std::string& line, const std::string& mark) {
    const auto at = line.find(mark);
    if (at == std::string::npos) return std::nullopt;
    return line.substr(at + mark.size());
}

/// What stands between two marks, to the last `end`.
std::optional<std::string> between(const std::string& line, const std::string& begin,
                                   const std::string& end) {
    const auto rest = behind(line, begin);
    if (!rest) return std::nullopt;
    const auto at = rest->rfind(end);
    return rest->substr(0, at);
}

/// The identifier of a line on content that cannot be had.
std::optional<std::string> contentIdentifier(const std::string& line) {
    for (const char* mark : {"[CreCacher] no usable content for ", "[CreCacher] no content for ",
                             "[CreCacher] the content for "}) {
        if (const auto rest = behind(line, mark)) return rest->substr(0, rest->find_first_of(": "));
    }
    return std::nullopt;
}

/// The line without its tag: "[Downloader] cannot" gives "cannot".
std::string withoutTag(const std::string& line) {
    std::string text = base::trimmed(line);
    for (const auto& [open, close] : {std::pair{'[', ']'}, std::pair{'(', ')'}}) {
        if (text.empty() || text.front() != open) continue;
        const auto end = text.find(close);
        if (end != std::string::npos) text = base::trimmed(text.substr(end + 1));
    }
    return text;
}

/// What of the trail below error level tells why an installer failed.
std::optional<std::string> failureNote(const std::string& line) {
    if (const auto status = between(line, "[MacHardeningFacilitator] exit process code for ", "")) {
        const auto at = status->rfind(" is = ");
        const long value = at == std::string::npos ? 0 : std::strtol(status->c_str() + at + 6, nullptr, 10);
        if (value <= 0) return std::nullopt;
        if ((value & 0x7f) != 0) return "ended by signal " + std::to_string(value & 0x7f);
        return "exit status " + std::to_string(value >> 8);
    }
    for (const char* mark :
         {"[MacHardeningFacilitator] output of ", "[MacPatchManager] The application error log = "}) {
        const auto rest = behind(line, mark);
        if (!rest) continue;
        const bool named = base::hasEnding(mark, "output of ");
        return "output: " + base::trimmed(named ? behind(*rest, " = ").value_or(*rest) : *rest);
    }
    return std::nullopt;
}

std::string lastLine(const std::string& text) {
    const std::string whole = base::trimmed(text);
    const auto newline = whole.rfind('\n');
    return newline == std::string::npos ? whole : base::trimmed(whole.substr(newline + 1));
}

std::string lastLines(const std::string& text, std::size_t lines) {
    auto start = text.size();
    for (std::size_t i = 0; i < lines && start != std::string::npos && start > 0; ++i)
        start = text.rfind('\n', start - 1);
    return start == std::string::npos || start == 0 ? text : "...\n" + text.substr(start + 1);
}

}  // namespace

void RunLog::take(bool error, const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (const auto identifier = error ? contentIdentifier(line) : std::nullopt) {
        add({Kind::identifier, *identifier}, withoutTag(line));
        return;
    }
    if (error && base::contains(line, "The run ended with an unexpected error"))
        runNotes_ = {withoutTag(line)};
    // Every installer object looks for the profile's name, which no remediation needs.
    const bool aside =
        base::contains(line, "Inside getValueFromIni") || base::contains(line, "Inside readValueFromIniFile");
    if (error && !aside) {
        pending_.push_back(withoutTag(line));
    } else if (const auto failure = error ? std::nullopt : failureNote(line)) {
        pending_.push_back(*failure);
    }
    if (pending_.size() > notesPerSubject) pending_.erase(pending_.begin());
    follow(line);
}

// The marks are lines that the library writes at the beginning and at the end of its work on a request.
void RunLog::follow(const std::string& line) {
    if (const auto key = behind(line, "(parseCreEriForSupersedesTrue) Combined cpe is : ")) {
        begin(Kind::key, *key);
    } else if (const auto cce = behind(line, "(applyConfigs) Applying configs for CCE: ")) {
        begin(Kind::identifier, *cce);
    } else if (const auto package = behind(line, "(installOsPatches) Patching OS Package = ")) {
        begin(Kind::package, base::trimmed(*package));
    } else if (const auto done =
                   between(line, "(installNonOsPatches) The remediation result for cpe = ", " is \"")) {
        settle(Kind::key, *done);
    } else if (const auto nameless = between(line, "present in CRE-ERI xml for cpe = '", "' and CVE = '")) {
        settle(Kind::key, *nameless);
    } else if (base::contains(line, "(installNonOsPatches) eriDataV.size = ") ||
               base::contains(line, "The RESULT for Config apply for : ") ||
               base::contains(line, " <<< [Remediation Manager]") ||
               base::contains(line, "Inside getAndParseCreEriForSupersedesTrue")) {
        begin(Kind::key, "");
    }
}

void RunLog::begin(Kind kind, const std::string& name) {
    if (!subject_.name.empty()) settle(subject_.kind, subject_.name);
    pending_.clear();
    subject_ = {kind, name};
}

void RunLog::settle(Kind kind, const std::string& name) {
    for (const std::string& note : pending_)
        add({kind, name}, note);
    pending_.clear();
}

void RunLog::add(const Subject& subject, const std::string& note) {
    if (notes_.size() >= subjectsLimit && notes_.count(subject) == 0) return;
    std::vector<std::string>& notes = notes_[subject];
    if (notes.size() >= notesPerSubject) notes.erase(notes.begin());
    // The end of an installer's output tells more than its beginning.
    notes.push_back(note.size() <= noteBytes ? note : "..." + note.substr(note.size() - noteBytes));
}

std::vector<std::string> RunLog::notes(const std::string& key, const std::string& identifier) const {
    const std::lock_guard<std::mutex> lock(mutex_);
    std::vector<std::string> all;
    for (const Subject& subject :
         {Subject{Kind::key, key}, Subject{Kind::identifier, base::trimmed(identifier)},
          Subject{Kind::package, packageNameOf(key)}}) {
        const auto found = notes_.find(subject);
        if (found == notes_.end()) continue;
        all.insert(all.end(), found->second.begin(), found->second.end());
    }
    return all.empty() ? runNotes_ : all;
}

std::string shortReason(const std::vector<std::string>& notes, std::size_t columns) {
    if (notes.empty()) return "";
    std::string reason = notes.front();
    const auto output = std::find_if(notes.begin(), notes.end(), [](const std::string& note) {
        return base::hasBeginning(note, "output: ");
    });
    if (const auto failed = behind(reason, "remediation failed = ")) {
        reason = lastLine(*failed).empty() ? "the installer said nothing" : lastLine(*failed);
    } else if (base::hasBeginning(reason, "exit status ") && output != notes.end()) {
        reason += ": " + lastLine(output->substr(8));
    } else if (base::hasBeginning(reason, "Cant get os application name")) {
        reason = "softwareupdate lists no update that belongs to it";
    } else if (base::hasBeginning(reason, "More than 2 CPEs")) {
        reason = "the request names more than two CPEs";
    } else if (base::hasBeginning(reason, "No CPEs")) {
        reason = "the request names no CPE";
    }
    return cutToColumns(base::printable(reason), columns, "...");
}

std::string outputTail(const std::vector<std::string>& notes) {
    for (auto note = notes.rbegin(); note != notes.rend(); ++note) {
        for (const char* mark : {"remediation failed = ", "output: "}) {
            if (const auto said = behind(*note, mark); said && !base::trimmed(*said).empty())
                return lastLines(base::trimmed(*said), outputLines);
        }
    }
    return "";
}

class LogTap::Appender : public log4cpp::AppenderSkeleton {
  public:
    explicit Appender(std::function<void(bool, const std::string&)> take)
        : AppenderSkeleton("tap"), take_(std::move(take)) {}
    void close() override {}
    bool requiresLayout() const override { return false; }
    void setLayout(log4cpp::Layout* /*layout*/) override {}

  protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        try {
            take_(event.priority <= log4cpp::Priority::ERROR, event.message);
        } catch (const std::exception&) {
            // log4cpp lets nothing through, so that a note without memory for it would end the process.
            return;
        }
    }

  private:
    std::function<void(bool, const std::string&)> take_;
};

LogTap::LogTap(std::function<void(bool error, const std::string& line)> take) {
    log4cpp::Category& category = Logger::GetInstance()->GetLogger();
    auto appender = std::make_unique<Appender>(std::move(take));
    appender_ = appender.get();
    category.addAppender(appender.release());
    // The log file keeps its own threshold.
    category.setPriority(log4cpp::Priority::DEBUG);
}

LogTap::~LogTap() {
    Logger::GetInstance()->GetLogger().removeAppender(appender_);
}

}  // namespace zelor::controller
