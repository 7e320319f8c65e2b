#include "remediation/CallReport.h"

#include <algorithm>
#include <utility>

namespace zelor {

namespace {

// Per thread and only ever set to a report on that thread's stack.
CallReport*& innermost() {
    static thread_local CallReport* report = nullptr;
    return report;
}

}  // namespace

CallReport::CallReport(TransferSink sink, StopSource stop)
    : outer_(std::exchange(innermost(), this)), sink_(std::move(sink)), stop_(std::move(stop)) {}

CallReport::~CallReport() {
    innermost() = outer_;
}

void CallReport::addReason(const std::string& reason) {
    CallReport* report = innermost();
    if (report != nullptr && report->reason_.empty()) report->reason_ = reason.substr(0, kReasonBytes);
}

void CallReport::setOutput(const std::string& output) {
    CallReport* report = innermost();
    if (report != nullptr)
        report->output_ = output.substr(output.size() - std::min(output.size(), kOutputBytes));
}

void CallReport::addWarning(const std::string& warning) {
    CallReport* report = innermost();
    if (report != nullptr && report->warning_.empty()) report->warning_ = warning.substr(0, kReasonBytes);
}

void CallReport::askForRestart() {
    if (innermost() != nullptr) innermost()->restartAsked_ = true;
}

void CallReport::setNothingToDo() {
    if (innermost() != nullptr) innermost()->nothingToDo_ = true;
}

void CallReport::transferred(std::uint64_t done, std::uint64_t total) {
    if (innermost() != nullptr && innermost()->sink_) innermost()->sink_(done, total);
}

bool CallReport::stopAsked() {
    return innermost() != nullptr && innermost()->stop_ && innermost()->stop_();
}

}  // namespace zelor
