#pragma once

#include <string>

#include "agent/download/PatchDownload.h"
#include "agent/http/Mirrors.h"

namespace zelor::agent {

/// Where that mirror has the archive of the patch `stem`.
std::string patchUrl(const Mirror& mirror, const std::string& stem);

/// The archive of the patch `stem`, from no mirror yet, by the settings in force and the digest that content
/// gives, to be stored as `destination`. Throws std::runtime_error with the remedy when it must not be
/// fetched.
DownloadJob patchJob(const std::string& stem, const std::string& destination, const std::string& installPath);

/// How patches are fetched from that mirror by the settings in force; `othersLeft`: another one is asked when
/// it does not serve.
DownloadPolicy patchPolicy(const Mirror& mirror, bool othersLeft);

}  // namespace zelor::agent
