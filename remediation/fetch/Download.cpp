#include "remediation/fetch/Download.h"

#include <boost/filesystem/operations.hpp>
#include <exception>
#include <utility>

#include "base/Mutex.h"
#include "collaborators/RemediationResourceDownloader.h"
#include "platform/Log.h"
#include "remediation/CallReport.h"

namespace zelor::remediation {

Download::Download(const std::string& installPath, std::atomic<bool>& done,
                   const std::atomic<bool>& internalError, Cancellation& cancellation, RunEvents& events)
    : installPath_(installPath),
      done_(done),
      internalError_(internalError),
      cancellation_(cancellation),
      events_(events) {}

bool Download::forRequest(const std::string& key, const PatchName& name, std::string& archivePath) {
    const auto work = [&] { transfer(name.stem, archivePath, name.extension, false, 0); };
    boost::system::error_code error;
    do {
        if (!start(key, work)) return !refused_;
        join();
    } while (cancellation_.downloadWasInterrupted() && !internalError_ &&
             !boost::filesystem::exists(archivePath, error));
    return true;
}

int Download::forBuffer(const PatchName& name, std::string& archivePath, unsigned long bytesPerSecond) {
    stopped_ = false;
    const int result = transfer(name.stem, archivePath, name.extension, true, bytesPerSecond);
    done_ = false;
    if (cancellation_.all() || boost::this_thread::interruption_requested()) stopped_ = true;
    return result;
}

// False when no thread could be made for `work`, or a cancel came before it.
bool Download::start(const std::string& key, const std::function<void()>& work) {
    done_ = false;
    const Cancellation::Start start = cancellation_.startDownload(key, work);
    refused_ = start == Cancellation::Start::cancelled;
    return start == Cancellation::Start::started;
}

// Waits for the end of the transfer, then takes the thread's handle to join it: a cancel may use the shared
// handle at any moment.
void Download::join() {
    const boost::this_thread::disable_interruption whole;
    {
        const base::MutexLock lock(endMutex_);
        while (!done_)
            end_.wait(endMutex_);
    }
    boost::thread ended = cancellation_.takeDownload();
    if (ended.joinable()) ended.join();
    done_ = false;
}

int Download::transfer(std::string stem, std::string& archivePath, std::string extension, bool rateLimited,
                       unsigned long bytesPerSecond) {
    int result = -1;
    CallReport report([this](std::uint64_t done, std::uint64_t total) { events_.transferred(done, total); },
                      [this] { return cancellation_.all(); });
    try {
        result = RemediationResourceDownloader::GetInstance()->getResource(
            std::move(stem), archivePath, std::move(extension), installPath_, rateLimited, bytesPerSecond);
    } catch (const std::exception& problem) {
        log::error(" [Remediation Manager] (downloadFileFromRepo) The download ended with an error: ",
                   problem.what());
        CallReport::addReason(std::string("the download ended with an error: ") + problem.what());
    } catch (const boost::thread_interrupted&) {
        log::info(" [Remediation Manager] (downloadFileFromRepo) The download was interrupted.");
        CallReport::addReason("the download was interrupted");
        stopped_ = true;
    } catch (...) {
        log::error(
            " [Remediation Manager] (downloadFileFromRepo) The download ended with an error: an exception of "
            "unknown type");
        CallReport::addReason("the download ended with an error of an unknown kind");
    }
    events_.endDownload(result == 0 ? "" : report.reason());
    const base::MutexLock lock(endMutex_);
    done_ = true;
    end_.notifyAll();
    return result;
}

}  // namespace zelor::remediation
