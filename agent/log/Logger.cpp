#include "collaborators/Logger.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iostream>
#include <log4cpp/Layout.hh>
#include <log4cpp/OstreamAppender.hh>
#include <log4cpp/RollingFileAppender.hh>
#include <memory>
#include <optional>

#include "agent/AgentSettings.h"
#include "agent/LogControl.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/Mutex.h"
#include "base/SystemRoot.h"

namespace {

using log4cpp::Priority;

constexpr std::size_t kLogBytesLimit = 10U << 20U;
constexpr unsigned int kBackups = 5;
constexpr mode_t kFileMode = 0640;
constexpr Priority::Value kErrorsOnly = Priority::ERROR;

class LineLayout : public log4cpp::Layout {
  public:
    std::string format(const log4cpp::LoggingEvent& event) override {
        return zelor::agent::logLine(event.timeStamp, event.priority, event.message);
    }
};

/// A rolling file that commands do not inherit. An error line that cannot be written goes to standard error.
class LogFile : public log4cpp::RollingFileAppender {
  public:
    explicit LogFile(const std::string& path)
        : RollingFileAppender("file", path, kLogBytesLimit, kBackups, true, kFileMode) {
        _flags |= O_CLOEXEC;
        LogFile::reopen();
    }
    bool isOpen() const { return _fd >= 0; }

  protected:
    void _append(const log4cpp::LoggingEvent& event) override {
        try {
            const std::string line = _getLayout().format(event);
            if (!zelor::base::writeAll(_fd, line) && event.priority <= kErrorsOnly)
                std::cerr << line << std::flush;
            const off_t size = ::lseek(_fd, 0, SEEK_END);
            if (size >= static_cast<off_t>(kLogBytesLimit)) rollOver();
        } catch (const std::exception&) {
            // log4cpp catches nothing: losing a line is better than ending the process.
            return;
        }
    }
};

std::optional<Priority::Value> priorityOf(const std::string& level) {
    if (level == "debug") return Priority::DEBUG;
    if (level == "info") return Priority::INFO;
    if (level == "error") return Priority::ERROR;
    return std::nullopt;
}

Priority::Value priorityOf(zelor::agent::LogLevel level) {
    if (level == zelor::agent::LogLevel::error) return Priority::ERROR;
    return level == zelor::agent::LogLevel::info ? Priority::INFO : Priority::DEBUG;
}

/// The outputs of the log; log4cpp guards the category itself.
class Outputs {
  public:
    static Outputs& instance() {
        // Never destroyed: a run's thread may outlive main().
        static Outputs& outputs = *new Outputs;
        return outputs;
    }

    log4cpp::Category& category() {
        const zelor::base::MutexLock lock(mutex_);
        followRoot();
        return category_;
    }

    void addStandardError(Priority::Value level) {
        const zelor::base::MutexLock lock(mutex_);
        followRoot();
        verbose_ = std::max(verbose_.value_or(level), level);
        setLevels();
    }

  private:
    Outputs() { category_.setAdditivity(false); }

    void followRoot() ZELOR_REQUIRES(mutex_) {
        const std::string root = getSystemRoot();
        if (root_ == root) return;
        root_ = root;
        openFile();
    }

    void openFile() ZELOR_REQUIRES(mutex_) {
        if (file_ != nullptr) category_.removeAppender(file_);
        file_ = nullptr;
        const auto settings = zelor::agent::AgentSettings::currentUnreported();
        fileLevel_ = priorityOf(settings->values().logLevel);
        const std::string failure = attach(settings->values().logFile);
        setLevels();
        if (!failure.empty()) category_.error(failure);
        settings->reportProblems([this](const std::string& line) { category_.error(line); });
    }

    /// Opens the log file; returns what went wrong, "" when nothing did.
    std::string attach(const std::string& path) ZELOR_REQUIRES(mutex_) {
        const auto slash = path.rfind('/');
        const bool directory = zelor::base::makeDirectories(path.substr(0, slash));
        const int directoryError = errno;
        auto file = std::make_unique<LogFile>(path);
        if (!file->isOpen()) {
            return "[Logger] cannot write the log file " + path + ": " +
                   zelor::base::errorText(directory ? errno : directoryError) +
                   "; errors go to standard error until Log.File names a file that can be written";
        }
        file->setLayout(std::make_unique<LineLayout>().release());
        file->setThreshold(fileLevel_);
        file_ = file.get();
        category_.addAppender(file.release());
        return "";
    }

    /// Standard error shows the level asked for, and at least errors while there is no file.
    std::optional<Priority::Value> standardErrorLevel() const ZELOR_REQUIRES(mutex_) {
        return file_ == nullptr ? std::max(verbose_.value_or(kErrorsOnly), kErrorsOnly) : verbose_;
    }

    void setLevels() ZELOR_REQUIRES(mutex_) {
        const auto shown = standardErrorLevel();
        if (standardError_ != nullptr) category_.removeAppender(standardError_);
        standardError_ = nullptr;
        if (shown) {
            auto appender = std::make_unique<log4cpp::OstreamAppender>("standard error", &std::cerr);
            appender->setLayout(std::make_unique<LineLayout>().release());
            appender->setThreshold(*shown);
            standardError_ = appender.get();
            category_.addAppender(appender.release());
        }
        const Priority::Value toFile = file_ == nullptr ? kErrorsOnly : fileLevel_;
        category_.setPriority(std::max(shown.value_or(toFile), toFile));
    }

    zelor::base::Mutex mutex_;
    std::optional<std::string> root_ ZELOR_GUARDED_BY(mutex_);
    log4cpp::Category& category_ = log4cpp::Category::getInstance("zelor");
    log4cpp::Appender* file_ ZELOR_GUARDED_BY(mutex_) = nullptr;           ///< owned by the category
    log4cpp::Appender* standardError_ ZELOR_GUARDED_BY(mutex_) = nullptr;  ///< owned by the category
    Priority::Value fileLevel_ ZELOR_GUARDED_BY(mutex_) = Priority::DEBUG;
    std::optional<Priority::Value> verbose_ ZELOR_GUARDED_BY(mutex_);
};

}  // namespace

Logger* Logger::GetInstance() {
    static Logger logger;
    return &logger;
}

log4cpp::Category& Logger::GetLogger() {
    return Outputs::instance().category();
}

void zelor::agent::logToStandardError(const std::string& level) {
    Outputs::instance().addStandardError(priorityOf(level).value_or(Priority::DEBUG));
}
