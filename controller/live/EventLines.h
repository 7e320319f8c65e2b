#pragma once

#include <string>
#include <vector>

#include "controller/live/RunListener.h"
#include "controller/report/ReportJson.h"
#include "controller/run/OutputFile.h"
#include "controller/run/RunRecord.h"

namespace zelor::controller {

/// Writes a line with one JSON object for each change; the first also has the facts of the run.
class EventLines : public RunListener {
  public:
    /// All stay the caller's and outlive this object.
    EventLines(LineOutput& out, const RunRecord& record, const RunFacts& facts)
        : out_(out), record_(record), facts_(&facts) {}

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override {
        begun_.resize(table.results().size(), -1);
        for (const Change& change : changes) {
            double& begun = begun_[change.request];
            if (begun < 0 && change.value != 0) begun = time;
            const Result& result = table.results()[change.request];
            RequestDetails details;
            if (isResult(change.value)) details = {record_.outcome(result), time - begun};
            out_.write(eventJson(time, result, details, facts_));
            facts_ = nullptr;
        }
    }

  private:
    LineOutput& out_;
    const RunRecord& record_;
    const RunFacts* facts_;      ///< null once they are written
    std::vector<double> begun_;  ///< by request: when it was first worked on; below zero before
};

}  // namespace zelor::controller
