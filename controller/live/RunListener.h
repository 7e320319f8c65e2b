#pragma once

#include <vector>

#include "controller/States.h"
#include "controller/run/ResultTable.h"

namespace zelor::controller {

/// Receives the progress of a run, on the thread that watches it. Times are seconds since the start.
class RunListener {
  public:
    RunListener() = default;
    RunListener(const RunListener&) = delete;
    RunListener& operator=(const RunListener&) = delete;
    virtual ~RunListener() = default;

    /// Values have changed; the table holds the new ones.
    virtual void changed(const ResultTable& /*table*/, const std::vector<Change>& /*changes*/,
                         double /*time*/) {}
    /// Called many times a second, whether anything changed or not.
    virtual void ticked(const ResultTable& /*table*/, double /*time*/) {}
    /// The job is to end for that reason; its end is awaited now.
    virtual void cancelling(EarlyEnd /*why*/, double /*time*/) {}
    /// The run is over; the table holds the results.
    virtual void ended(const ResultTable& /*table*/, double /*time*/) {}
};

}  // namespace zelor::controller
