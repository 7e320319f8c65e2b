#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace zelor::controller {

/// Finds out from the log's trail why requests failed: it keeps the error lines and installer outputs that
/// were logged while a request was worked on. Bounded in lines for each request and in requests. Any thread.
class RunLog {
  public:
    /// Takes one line of the log, as it was logged.
    void take(bool error, const std::string& line);

    /// What was noted about a request, oldest first: by its key, by its identifier and, for an OS update, by
    /// its package name; of a request without notes, why the whole run ended early.
    std::vector<std::string> notes(const std::string& key, const std::string& identifier) const;

  private:
    enum class Kind { key, identifier, package };
    struct Subject {
        Kind kind;
        std::string name;
        bool operator<(const Subject& other) const {
            return kind != other.kind ? kind < other.kind : name < other.name;
        }
    };

    void follow(const std::string& line);
    void begin(Kind kind, const std::string& name);
    /// Files the pending notes under the subject.
    void settle(Kind kind, const std::string& name);
    void add(const Subject& subject, const std::string& note);

    mutable std::mutex mutex_;
    std::map<Subject, std::vector<std::string>> notes_;
    std::vector<std::string> runNotes_;
    std::vector<std::string> pending_;  ///< since the subject began
    Subject subject_{Kind::key, ""};    ///< without a name while it is not known
};

/// The reason in one printable line of at most so many columns; "" when the notes hold none.
std::string shortReason(const std::vector<std::string>& notes, std::size_t columns = 160);

/// The end of what an installer or script said when it failed, at most 40 lines; "" when the notes hold none.
std::string outputTail(const std::vector<std::string>& notes);

/// Hands every line of the agent's log to `take` for its life, also the lines that the log file leaves out:
/// whether it is an error, and its text. `take` is called on the thread that logs, by one at a time.
class LogTap {
  public:
    explicit LogTap(std::function<void(bool error, const std::string& line)> take);
    ~LogTap();
    LogTap(const LogTap&) = delete;
    LogTap& operator=(const LogTap&) = delete;

  private:
    class Appender;
    Appender* appender_;  ///< owned by the log's category
};

}  // namespace zelor::controller
