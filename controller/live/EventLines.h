#pragma once

#include <string>
#include <vector>

#include "controller/live/RunListener.h"
#include "controller/report/ReportJson.h"
#include "controller/run/OutputFile.h"

namespace zelor::controller {

/// One JSON object a line for each change.
class EventLines : public RunListener {
  public:
    explicit EventLines(LineOutput& out) : out_(out) {}

    void changed(const ResultTable& table, const std::vector<Change>& changes, double time) override {
        for (const Change& change : changes)
            out_.write(eventJson(time, *table.results()[change.request].key, change.value));
    }

  private:
    LineOutput& out_;
};

}  // namespace zelor::controller
