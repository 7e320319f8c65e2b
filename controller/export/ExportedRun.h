#pragma once

#include <string>

#include "controller/States.h"
#include "results/Run.h"

namespace zelor::controller {

/// What is exported: the results of a run, as `run --json` writes them.
using ExportedRun = results::Run;
using ExportedRequest = results::Request;
using results::endOf;

/// An identifier of a request that is the same in every run on every machine: 32 hexadecimal digits.
std::string requestDigest(const ExportedRequest& request);
/// One that is the same in every export of this run alone.
std::string commandDigest(const ExportedRun& run, const ExportedRequest& request);

/// Reads results. Members that this version does not know are ignored. Throws InputError, which names the
/// text `name` and the member, when it is something else.
ExportedRun parseResults(const std::string& text, const std::string& name);

/// Reads the results in a file, "-" for standard input. Throws InputError.
ExportedRun loadResults(const std::string& path);

}  // namespace zelor::controller
