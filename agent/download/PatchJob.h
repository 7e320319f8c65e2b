#pragma once

#include <string>

#include "agent/download/PatchDownload.h"

namespace zelor::agent {

/// The archive of the patch `stem`, by the settings in force and the digest that content gives, to be stored
/// as `destination`. Throws std::runtime_error with the remedy when it must not be fetched.
DownloadJob patchJob(const std::string& stem, const std::string& destination, const std::string& installPath);

/// How patches are fetched by the settings in force. Throws std::runtime_error without a repository.
DownloadPolicy patchPolicy();

}  // namespace zelor::agent
