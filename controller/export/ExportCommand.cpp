#include <iostream>

#include "controller/Commands.h"
#include "controller/InputError.h"
#include "controller/export/Export.h"
#include "controller/run/OutputFile.h"

namespace zelor::controller {

int exportCommand(const ExportOptions& options) {
    const auto format = exportFormat(options.format);
    if (!format) throw InputError("--format names no format; use xccdf, ocsf or prometheus");
    checkOutputs({{"--out", options.out}}, options.results);
    const ExportedRun run = loadResults(options.results);
    const std::string problem =
        writeOutput(options.out, [&](std::ostream& out) { writeExport(out, run, *format); });
    if (!problem.empty()) throw CommandError(exitStatus::kOutputFailed, problem);
    return exitStatus::kAllSucceeded;
}

}  // namespace zelor::controller
