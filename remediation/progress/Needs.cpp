#include "remediation/progress/Needs.h"

#include <exception>

#include "platform/Log.h"

namespace zelor::remediation {

template <class Call>
void Needs::notify(const Call& call) {
    AheadOfNeed* const receiver = receiver_;
    if (receiver == nullptr) return;
    try {
        call(*receiver);
    } catch (const std::exception& problem) {
        log::error("[Remediation Manager] The run's AheadOfNeed threw an exception: ", problem.what());
    }
}

void Needs::content(const std::vector<NeededContent>& content) {
    notify([&](AheadOfNeed& receiver) { receiver.contentNeeded(content); });
}

void Needs::archives(const std::vector<NeededArchive>& archives) {
    notify([&](AheadOfNeed& receiver) { receiver.archivesNeeded(archives); });
}

void Needs::notNeeded(const std::map<std::string, std::string>& keys) {
    notify([&](AheadOfNeed& receiver) {
        for (const auto& one : keys)
            receiver.notNeeded(one.first);
    });
}

void Needs::cancelled() {
    notify([](AheadOfNeed& receiver) { receiver.cancelled(); });
}

void Needs::ended() {
    notify([](AheadOfNeed& receiver) { receiver.ended(); });
}

}  // namespace zelor::remediation
