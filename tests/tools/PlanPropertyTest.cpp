#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <random>
#include <set>
#include <sstream>

#include "base/CommandRunner.h"
#include "base/PrintableText.h"
#include "base/Strings.h"
#include "collaborators/CreCacher.h"
#include "controller/plan/Plan.h"
#include "platform/macos/InstallCommands.h"
#include "platform/macos/MacPatchManager.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunObserver.h"
#include "remediation/apply/InstalledRecord.h"
#include "remediation/fetch/PatchName.h"
#include "tests/library/FakeAgent.h"

// Random worlds in which `makePlan` must predict what RemediationManager does: the value of every request,
// the content it asks for, every download and every command in their order. The agent is the one of the
// library's tests, and commands run on a Mac in memory on which no installer fails. There is one archive per
// stem, with the one file expected; the content directory is empty when a run begins.
namespace zelor::test {
namespace {

namespace fs = boost::filesystem;
using Values = std::map<std::string, unsigned long>;

/// Executes the commands, and records what was done in order.
struct FakeMac {
    std::vector<std::string> labels;  ///< of the listed updates
    bool labelled = false;            ///< the newer form of listings
    std::string version;
    std::vector<std::string> trace;  ///< downloads and commands that change something

    std::string listing() const {
        std::string text = "Software Update found:\n";
        for (const std::string& label : labels)
            text += (labelled ? "* Label: " : "   * ") + label + "\n\tTitle, 1K\n";
        return text;
    }
    std::string answer(const std::string& command) {
        if (command == "sw_vers -productName") return "Mac OS X\n";
        if (command == platform::kProductVersionCommand) return version;
        if (command == platform::kListUpdatesCommand) return listing();
        trace.push_back(command);
        if (base::hasBeginning(command, "installer ")) return "installer: The install was successful.";
        if (!base::hasBeginning(command, "softwareupdate -i ")) return "";
        const auto asked = std::find_if(labels.begin(), labels.end(), [&](const std::string& label) {
            return platform::installUpdateCommand(label) == command;
        });
        if (asked == labels.end()) return "No updates are available.";
        labels.erase(asked);
        return "Done.";
    }
};

FakeMac* mac = nullptr;

const std::vector<std::string> kPatchNames = {"editor.pkg",
                                              "player.dmg",
                                              "tool.app",
                                              "my.apps-1.0.pkg",
                                              "x.framework.app.tgz",
                                              "foo.pkg",
                                              "barfoo.pkg",
                                              "set.sh",
                                              "lock.bsh",
                                              "img.dmg.pkg",
                                              "odd.exe",
                                              "nodot",
                                              "a.b",
                                              "end.",
                                              ".pkg",
                                              ".",
                                              "..",
                                              "up/../load.pkg",
                                              "c\x01ntrol.pkg",
                                              "li\nne.pkg",
                                              "twice.pkg.pkg",
                                              "eq=1.pkg",
                                              " lead.pkg",
                                              "trail.pkg ",
                                              "it's.dmg",
                                              "EDITOR-2.PKG",
                                              ""};
const std::vector<std::string> kEriIds = {"ERI-1", "ERI-2", "ERI-3",  "ERI-4", "ERI-5",    "ERI-6", "ERI-7",
                                          "ERI-8", "ERI-9", "ERI-1 ", "E\x01", "E\nERI-9", ""};
const std::vector<std::string> kIdentifiers = {"CVE-1", "CVE-2", "CVE-3", "CVE-4", "CVE-5",  "CVE-6",
                                               "CVE-7", "CCE-1", "CCE-2", "CCE-3", " CVE-4", "CCE-1\t"};
const std::vector<std::string> kPackages = {"",       "Apple Mac OS X", "apple mac os x", "Apple Safari",
                                            "Safari", "Apple Apple TV", "apple",          "OSXUpd-1",
                                            "Editor", "oval:1",         "oval:2",         "-1",
                                            "10.9"};
const std::vector<std::string> kCpes = {"cpe:/a:v:one",
                                        "cpe:/a:v:two",
                                        "cpe:/o:x,cpe:/a:v:three",
                                        "cpe:/o:y",
                                        "cpe:/o:special",
                                        " cpe:/a:v:four",
                                        "hello",
                                        "a,b,c",
                                        ",",
                                        "",
                                        "cpe:/a:v:five,"};
const std::vector<std::string> kUpdateLabels = {
    "Safari9-9",     "Safari9-9 ",   "NotSafari-1", "OSXUpd-1", "OSXUpd-1\t",
    "OS X SecUpd-7", "SecUpd2015-1", "-OS X-1",     "-1Safari", "Apple TV-2",
    "TV's-2",        "  OS X  A",    "Done OS X-3", "*OS X*-4", "Tools (OS X 10.10)-6"};

bool isFetchable(const std::string& name) {
    return remediation::checkFetchable(name).has_value();
}

/// A world that is determined by its seed.
class World {
  public:
    explicit World(unsigned seed) : random_(seed) {
        mac = &mac_;
        contentDir_ = agent_.dir / pick<std::string>({"content", "content", "content", "my.app/content",
                                                      "con.pkg", "im.dmg.d/content"});
        fs::create_directories(fs::path(contentDir_).parent_path());
        addUpdates();
        addContents();
        addRecord();
        addBuffer();
        addRequests();
        agent_.specialCases = {"cpe:/o:special"};
        agent_.vendorInstallationType = chance(10) ? "Interactive" : "silent";
        afterScan_ = chance(15);
    }
    ~World() { mac = nullptr; }
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    controller::PlanFacts facts() {
        controller::PlanFacts facts;
        facts.platformCpe = MacPatchManager::getSystemPlatformCpe();
        facts.specialCases = agent_.specialCases;
        facts.vendorInstallation = agent_.vendorInstallationType;
        facts.contentDir = contentDir_;
        facts.applications = agent_.dir / "Applications/";
        facts.mountPoint = agent_.dir / "var/zelor/mountpoint";
        facts.bufferedList = readFile(agent_.listPath());
        for (const fs::directory_entry& entry : fs::directory_iterator(agent_.bufferDir()))
            facts.bufferFiles.emplace(entry.path().filename().string(), fs::file_size(entry.path()));
        if (!afterScan_) record_.refresh(agent_.recordPath());
        facts.isRecorded = [this](const std::string& eri) { return record_.hasLine(eri); };
        facts.content = [this](const std::string& platform, const std::string& product,
                               const std::string& identifier) {
            return CreCacher::GetInstance(agent_.installPath(), "")->getCre(platform, product, identifier);
        };
        facts.contentProblem = [](const std::string&, const std::string&) { return "none"; };
        facts.updateListing = [] { return MacPatchManager().getOsCmdline(platform::kListUpdatesCommand); };
        facts.productVersion = [this] { return mac_.version; };
        facts.signatureProblem = [this](const std::string& archive, const std::string& name) {
            const bool good = readFile(agent_.bufferDir() + "/" + archive) == name + "\ngood\nx";
            return good ? "" : "forged";
        };
        return facts;
    }

    /// The differences between the plan and the run, "" for none.
    std::string difference(const controller::PlanFacts& facts) {
        const controller::Plan plan = controller::makePlan(requests_, facts);
        for (const controller::PlannedRequest& request : plan.requests)
            foreseen_.insert(controller::planKindName(request.kind) + ' ' + std::to_string(request.expected));
        const std::vector<std::string> asked = contentAskedFor();
        agent_.calls.clear();
        run();
        std::ostringstream out;
        for (const controller::PlannedRequest& request : plan.requests) {
            if (request.expected != settled_[request.key])
                out << "value of '" << base::printable(request.key) << "' (" << request.identifier
                    << "): plan " << request.expected << ", run " << settled_[request.key] << '\n';
        }
        if (plan.requests.size() != requests_.size()) out << "requests are missing from the plan\n";
        if (plan.rebootNeeded != reboot_) out << "rebootNeeded: run " << reboot_ << '\n';
        if (asked != contentAskedFor()) out << "other content is asked for\n";
        if (const auto steps = effects(plan); steps != mac_.trace)
            out << "plan does:\n" << lines(steps) << "run does:\n" << lines(mac_.trace);
        return out.str();
    }

    /// Kinds of requests with the values that were predicted for them.
    const std::set<std::string>& foreseen() const { return foreseen_; }

    std::string describe() {
        std::string text;
        for (const auto& [key, identifier] : requests_) {
            text += "'" + base::printable(key) + "' -> '" + base::printable(identifier) + "':";
            const auto found = agent_.content.find(base::trimmed(identifier));
            if (found == agent_.content.end())
                text += " no content";
            else
                for (parsedEriData& block : RecordAccess::blocks(RecordAccess::creEriData(found->second)))
                    text += " [" +
                            base::printable(block.getEriId() + ", " + block.getPatchId() + ", " +
                                            block.getMd5sum() + ", " + block.getInstructions()) +
                            (block.getMskbId().empty() ? "]" : ", mskb]");
            text += '\n';
        }
        return text + "record: " + base::printable(readFile(agent_.recordPath())) +
               "\nbuffer: " + base::printable(readFile(agent_.listPath())) +
               "\nlisting: " + base::printable(mac_.listing()) + "\n";
    }

  private:
    /// Keeps the last result of each request, whatever shares its key in the map.
    struct Results : RunObserver {
        explicit Results(World& of) : world(of) {}
        void changed(const std::string&, unsigned long value) override {
            if (value == RemediationManager::REM_DOWNLOADED) world.removeBundles();
            if (value == RemediationManager::REM_INSTALLING) world.makeBundles();
        }
        void settled(const RequestResult& result) override { world.settled_[result.key] = result.value; }
        World& world;
    };

    std::size_t below(std::size_t limit) { return random_() % limit; }
    bool chance(unsigned percent) { return below(100) < percent; }
    template <class T>
    T pick(const std::vector<T>& of) {
        return of[below(of.size())];
    }

    void addUpdates() {
        mac_.labelled = chance(30);
        mac_.version = pick<std::string>({"10.10.5\n", "10.10\n", "10.9.5\n", "10.14.6\n", ""});
        for (const std::string& label : kUpdateLabels)
            if (chance(30)) mac_.labels.push_back(label);
        if (chance(5)) mac_.labels.push_back("OS X Safari" + std::string(2500, '*'));
        std::shuffle(mac_.labels.begin(), mac_.labels.end(), random_);
    }
    void addContents() {
        for (const std::string& identifier : kIdentifiers) {
            if (chance(10)) continue;
            std::vector<Eri> blocks(chance(5) ? 0 : 1 + below(3));
            const bool update = chance(20);
            for (Eri& block : blocks) {
                block.id = pick(kEriIds);
                block.patchId = pick(kPatchNames);
                block.reboot = chance(20);
                block.md5 = pick<std::string>({"00", "00", "11", "", "00 "});
                if (chance(10)) block.mskb = "KB1";
                block.instructions = update ? "OS Remediation" : chance(30) ? "Using install option" : "";
                if (update) block.product = "cpe:/o:apple:mac_os_x";
            }
            agent_.addContent(identifier, blocks);
        }
        for (const std::string& name : kPatchNames)
            if (isFetchable(name)) agent_.addFile(name, "x");
        agent_.beforeDownload = [this](const std::string& stem) {
            mac_.trace.push_back("download " + stem);
            for (const std::string& name : kPatchNames) {  // the author names a signature by the run's rule
                const auto split = remediation::splitAtLastDot(name);
                if (isFetchable(name) && split->stem == stem)
                    writeFile(contentDir_ + '/' + remediation::signaturePath(name, split->extension), "good");
            }
        };
    }
    void addRecord() {
        std::string text;
        for (const std::string& eri : kEriIds)
            if (chance(8)) text += eri + '\n';
        if (chance(10)) text += pick(kEriIds);
        if (chance(80)) writeFile(agent_.recordPath(), text);
    }
    void addBuffer() {
        std::string list;
        for (const std::string& name : kPatchNames) {
            if (!remediation::checkFileName(name) || name.empty() || name == "twice.pkg.pkg" ||
                name == "end.")
                continue;
            if (chance(40)) list += name + "=" + pick<std::string>({"00", "11", "", "00=x"}) + '\n';
            if (chance(40))
                writeFile(agent_.bufferDir() + '/' + remediation::bufferedArchiveName(name),
                          name + (chance(75) ? "\ngood\nx" : "\nbad\nx"));
        }
        if (chance(10)) list = "to\x01rn=00\n" + list;
        if (chance(10) && !list.empty()) list.pop_back();
        if (chance(90)) writeFile(agent_.listPath(), list);
    }
    void addRequests() {
        const std::size_t count = 1 + below(9);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string package = pick(kPackages);
            const std::string key = pick(kCpes) + (chance(80) ? "||" + package : "") + (chance(5) ? " " : "");
            if (!base::trimmed(key).empty()) requests_[key] = pick(kIdentifiers);
        }
    }

    void run() {
        Results results(*this);
        RemediationManager manager(agent_.installPath());
        manager.setRunObserver(&results);
        manager.setContentDownloadDir(contentDir_);
        manager.setFirstRemediationAfterScan(afterScan_);
        manager.setovalIdMap(requests_);
        manager.concertedRemediationStart();
        reboot_ = manager.getRebootNeeded();
    }
    /// The agent unpacks plain files; the installer of bundles accepts only directories.
    void makeBundles() { exchangeBundles(fs::regular_file); }
    void removeBundles() { exchangeBundles(fs::directory_file); }
    void exchangeBundles(fs::file_type from) {
        for (const fs::directory_entry& entry : fs::directory_iterator(contentDir_)) {
            const fs::path path = entry.path();
            if (entry.status().type() != from || !base::contains(path.string(), ".app") ||
                path.extension() == ".zip" || path.extension() == ".sig")
                continue;
            fs::remove_all(path);
            if (from == fs::regular_file) fs::create_directory(path);
        }
    }

    std::vector<std::string> contentAskedFor() const {
        std::vector<std::string> asked;
        for (const std::string& call : agent_.calls)
            if (base::hasBeginning(call, "getCre ")) asked.push_back(call);
        std::sort(asked.begin(), asked.end());
        return asked;
    }
    static std::vector<std::string> effects(const controller::Plan& plan) {
        std::vector<std::string> all;
        for (const controller::PlannedRequest& request : plan.requests) {
            for (const controller::PlannedStep& step : request.steps) {
                if (step.file && !step.file->buffered && isFetchable(step.file->name))
                    all.push_back("download " + remediation::splitAtLastDot(step.file->name)->stem);
                all.insert(all.end(), step.commands.begin(), step.commands.end());
            }
            all.insert(all.end(), request.commands.begin(), request.commands.end());
        }
        return all;
    }
    static std::string lines(const std::vector<std::string>& of) {
        std::string text;
        for (const std::string& line : of)
            text += "  " + base::printable(line) + '\n';
        return text;
    }

    std::mt19937 random_;
    FakeAgent agent_;
    FakeMac mac_;
    std::string contentDir_;
    bool afterScan_ = false;
    controller::RequestMap requests_;
    remediation::InstalledRecord record_;
    Values settled_;
    std::set<std::string> foreseen_;
    bool reboot_ = false;
};

constexpr unsigned kWorlds = 2000;

struct PlanProperty : testing::Test {
    PlanProperty() {  // in memory where there is such a directory: a world makes some 30 files
        if (fs::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
    }
};

TEST_F(PlanProperty, PredictsEveryRequestOfRandomWorlds) {
    std::set<std::string> foreseen;
    for (unsigned seed = 1; seed <= kWorlds && !HasFailure(); ++seed) {
        World world(seed);
        const std::string before = world.describe();
        EXPECT_EQ(world.difference(world.facts()), "") << "seed " << seed << '\n' << before;
        foreseen.insert(world.foreseen().begin(), world.foreseen().end());
    }
    EXPECT_THAT(foreseen,
                testing::ElementsAre("configuration 12", "configuration 4", "configuration 8", "os-update 0",
                                     "os-update 4", "os-update 5", "patch 0", "patch 12", "patch 4",
                                     "patch 5", "patch 8", "unknown 6", "unknown 8"));
    std::cout << kWorlds << " worlds\n";
}

// Each of these inverts one decision of the plan, which the test above would notice.
TEST_F(PlanProperty, DetectsAPlanThatDecidesOtherwise) {
    const std::map<std::string, void (*)(controller::PlanFacts&)> turns = {
        {"recorded ERIs", [](auto& facts) { facts.isRecorded = [](const auto&) { return false; }; }},
        {"buffered patches", [](auto& facts) { facts.bufferedList.clear(); }},
        {"archives in the buffer", [](auto& facts) { facts.bufferFiles.clear(); }},
        {"signatures",
         [](auto& facts) { facts.signatureProblem = [](const auto&, const auto&) { return ""; }; }},
        {"listed updates",
         [](auto& facts) { facts.updateListing = [] { return std::vector<std::string>(); }; }},
        {"the version", [](auto& facts) { facts.productVersion = [] { return "10.14"; }; }},
        {"interactive installation", [](auto& facts) { facts.vendorInstallation = "silent"; }},
        {"products among systems", [](auto& facts) { facts.specialCases.clear(); }}};
    for (const auto& [name, turn] : turns) {
        bool seen = false;
        for (unsigned seed = 1; seed <= kWorlds / 4 && !seen; ++seed) {
            World world(seed);
            controller::PlanFacts facts = world.facts();
            turn(facts);
            seen = !world.difference(facts).empty();
        }
        EXPECT_TRUE(seen) << name;
    }
}

}  // namespace
}  // namespace zelor::test

// Nothing here has to survive a power loss.
extern "C" int syncfs(int) noexcept {
    return 0;
}
extern "C" int fsync(int) {
    return 0;
}

namespace zelor::base {

// Replaces the library's function: commands go to the Mac in memory.
CommandResult runCommand(const std::vector<std::string>& argv, bool, std::chrono::seconds) {
    CommandResult result;
    result.started = result.waited = true;
    result.status = 0;
    result.output = test::mac->answer(argv.back());
    result.outputSize = result.output.size();
    return result;
}

CommandResult runScript(const std::string& script, std::chrono::seconds limit) {
    CommandResult result = runCommand({"/bin/bash " + shellWord(script)}, true, limit);
    result.output.clear();
    return result;
}

}  // namespace zelor::base
