#include "authoring/rehearse/RehearsalMac.h"

#include <sys/wait.h>

#include <boost/dll/runtime_symbol_info.hpp>
#include <boost/filesystem.hpp>
#include <nlohmann/json.hpp>

#include "authoring/UsageError.h"
#include "base/CommandRunner.h"
#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

namespace fs = boost::filesystem;

constexpr const char* kKeptMetadata = "/opt/zelor/metadata";  ///< where agents keep it

/// Runs zelor-rehearsal, which reports its own errors.
std::string rehearsal(std::vector<std::string> words) {
    constexpr std::chrono::minutes kLimit{1};
    words.insert(words.begin(), siblingProgram("zelor-rehearsal"));
    const base::CommandResult result = base::runCommand(words, true, kLimit);
    if (result.waited && WIFEXITED(result.status) && WEXITSTATUS(result.status) == 0) return result.output;
    throw UsageError("the rehearsal Mac cannot be set up: " + base::trimmed(result.output));
}

}  // namespace

std::string siblingProgram(const std::string& name) {
    std::string path = (boost::dll::program_location().parent_path() / name).string();
    if (fs::exists(path)) return path;
    throw UsageError(path +
                     " is missing; a rehearsal needs the programs of one installation in one directory");
}

PlacedFile::PlacedFile(std::string path) : path_(std::move(path)), aside_(path_ + ".before-rehearsal") {
    // What is beside a file put aside is of a rehearsal that was killed.
    if (fs::exists(fs::symlink_status(aside_)))
        fs::remove_all(path_);
    else if (fs::exists(fs::symlink_status(path_)))
        fs::rename(path_, aside_);
}

PlacedFile::PlacedFile(std::string path, const std::string& text) : PlacedFile(std::move(path)) {
    base::replaceFile(path_, text);
}

PlacedFile::~PlacedFile() {
    if (kept_) return;
    boost::system::error_code ignored;
    fs::remove_all(path_, ignored);
    fs::rename(aside_, path_, ignored);
}

RehearsalMac::RehearsalMac(const std::string& scratch, const RehearsalMacOptions& options) {
    tools_ = options.tools.empty() ? scratch + "/tools" : fs::absolute(options.tools).string();
    if (options.tools.empty()) {
        rehearsal({"init", tools_, "--root", options.root.empty() ? scratch + "/mac" : options.root, "--os",
                   options.version});
        for (const std::string& label : options.updates)
            rehearsal(
                {"add-update", "--tools", tools_, "--label=" + label, "--version", "1.0", "--size", "1000"});
    }
    try {
        const nlohmann::json state = nlohmann::json::parse(rehearsal({"show", "--tools", tools_}));
        root_ = state.at("root");
        system_ =
            state.at("productName").get<std::string>() + ' ' + state.at("productVersion").get<std::string>();
    } catch (const nlohmann::json::exception&) {
        throw UsageError(tools_ + " is not a tools directory; make one with zelor-rehearsal init");
    }
}

void RehearsalMac::configure(const std::string& url, const std::string& publicPem,
                             const std::string& metadataRoot) {
    const std::string directory = root_ + "/etc/zelor";
    if (!base::makeDirectories(directory))
        throw UsageError("cannot make " + directory + ": " + base::errorText(errno));
    settings_.emplace_back(directory + "/repository.pem", publicPem);
    settings_.emplace_back(directory + "/root.json", metadataRoot);
    settings_.emplace_back(root_ + kKeptMetadata);
    settings_.emplace_back(directory + "/build", "platform = macos\n");
    settings_.emplace_back(directory + "/zelor.ini",
                           "[ScanManager]\nProfileId = " + system_ + "\n[Repository]\nUrl = " + url +
                               "\nTrustedKey = /etc/zelor/repository.pem\nRequireDigests = true\n"
                               "Root = /etc/zelor/root.json\nFreshness = require\n");
}

void RehearsalMac::keepSettings() {
    for (PlacedFile& file : settings_)
        file.keep();
}

}  // namespace zelor::authoring
