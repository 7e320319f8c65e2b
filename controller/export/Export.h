#pragma once

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "controller/export/ExportedRun.h"

/// The results of a run in formats that other programs read. The texts in them are untrusted: what a format
/// cannot contain becomes "?".
namespace zelor::controller {

/// A format that results are exported to.
enum class ExportFormat {
    xccdf,      ///< XCCDF 1.2: a benchmark with a rule and a result for each request
    ocsf,       ///< a line of JSON for each request: OCSF Remediation Activity, class 7001
    prometheus  ///< the text format of Prometheus, for a textfile collector
};

/// The names of the formats, as options have them.
const std::vector<std::string>& exportFormatNames();
/// The format of that name; none for another name.
std::optional<ExportFormat> exportFormat(const std::string& name);

/// Writes the run in that format. Errors are left in the stream's state.
void writeExport(std::ostream& out, const ExportedRun& run, ExportFormat format);

/// The same in each format.
void writeXccdf(std::ostream& out, const ExportedRun& run);
void writeOcsf(std::ostream& out, const ExportedRun& run);
void writePrometheus(std::ostream& out, const ExportedRun& run);

/// The result of a rule in XCCDF: "fixed", "pass", "fail", "notchecked", "error"; "unknown" for a success
/// that installed nothing and for a request that has no result yet.
std::string xccdfResult(const ExportedRequest& request);

/// The status of a remediation in OCSF: 1 success, 2 failure, 5 unsupported, 6 error, 0 without a result.
int ocsfStatus(const ExportedRequest& request);

/// An output of `run --export`.
struct RequestedExport {
    ExportFormat format;
    std::string path;  ///< "-": standard output
};

/// Parses "FORMAT=FILE". Throws InputError.
RequestedExport requestedExport(const std::string& text);

}  // namespace zelor::controller
