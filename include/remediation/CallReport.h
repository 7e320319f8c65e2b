#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "base/Export.h"

namespace zelor {

/// What a collaborator or an installer says about the current call, besides its result. The caller keeps a
/// report on its stack, makes the call, and reads the report; the function called adds to the innermost
/// report of its thread with the static functions. These do nothing when no report is open, so an agent may
/// call them anywhere or not at all.
///
/// An object belongs to the thread that made it and is destroyed there, in the reverse order of construction.
class ZELOR_API CallReport {
  public:
    /// How many bytes are kept of a reason (its start) and of an output (its end).
    static constexpr std::size_t kReasonBytes = 4096;
    static constexpr std::size_t kOutputBytes = 4096;

    /// Takes the bytes of a download so far and in all (0: not known).
    using TransferSink = std::function<void(std::uint64_t done, std::uint64_t total)>;

    /// True when the caller wants the call to end early.
    using StopSource = std::function<bool()>;

    /// `sink` is called on this thread for each `transferred`, `stop` for each `stopAsked`; they must not
    /// throw.
    explicit CallReport(TransferSink sink = {}, StopSource stop = {});
    ~CallReport();
    CallReport(const CallReport&) = delete;
    CallReport& operator=(const CallReport&) = delete;

    /// Why the call failed, in plain words; "" when no reason was given. Not escaped: it may hold names from
    /// content, files and servers.
    const std::string& reason() const { return reason_; }
    /// The end of what a command wrote; it may begin inside a character.
    const std::string& output() const { return output_; }
    /// True when what was installed asks for a restart.
    bool restartAsked() const { return restartAsked_; }
    /// Why a call that counts as a success installed nothing; "" when nothing was said. Not escaped.
    const std::string& warning() const { return warning_; }
    /// True when there was nothing to install.
    bool nothingToDo() const { return nothingToDo_; }

    /// Adds a reason. Only the first of a call is kept: later ones follow from it.
    static void addReason(const std::string& reason);
    /// Adds output. Only the last of a call is kept.
    static void setOutput(const std::string& output);
    /// Reports that what was installed asks for a restart.
    static void askForRestart();
    /// Reports that there was nothing to install.
    static void setNothingToDo();
    /// The call counts as a success, and yet nothing was installed, in plain words why. The first warning of
    /// a call is kept.
    static void addWarning(const std::string& warning);
    /// Reports bytes of a download so far and in all (0: not known) to the innermost report's sink.
    static void transferred(std::uint64_t done, std::uint64_t total);
    /// True when the caller of the innermost report wants the call to end early. A downloader asks several
    /// times a second, besides `boost::this_thread::interruption_requested()`, and keeps what it has for
    /// resumption.
    static bool stopAsked();

  private:
    CallReport* outer_;
    TransferSink sink_;
    StopSource stop_;
    std::string reason_;
    std::string output_;
    std::string warning_;
    bool restartAsked_ = false;
    bool nothingToDo_ = false;
};

}  // namespace zelor
