#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>

#include "base/Strings.h"
#include "tests/faults/DiskModel.h"
#include "tests/faults/FaultFixture.h"

namespace zelor::test {

namespace {

struct Cut {
    std::size_t at;
    Survival survival;
    std::uint32_t seed;
};

std::string nameOf(const Cut& cut) {
    const char* const names[] = {"nothing", "all", "names", "namesAndSizes", "data", "mixed"};
    return "operation " + std::to_string(cut.at) + ", surviving: " + names[static_cast<int>(cut.survival)] +
           " " + std::to_string(cut.seed);
}

/// The states that differ, of every moment.
std::vector<Cut> differentStates(const DiskModel& model) {
    constexpr std::uint32_t kMixes = 12;
    std::vector<Cut> cuts;
    std::set<std::size_t> seen;
    for (std::size_t at = 0; at <= model.operations(); ++at) {
        for (int survival = 0; survival <= static_cast<int>(Survival::mixed); ++survival) {
            const bool mixed = static_cast<Survival>(survival) == Survival::mixed;
            for (std::uint32_t seed = 0; seed < (mixed ? kMixes : 1); ++seed) {
                const Cut cut{at, static_cast<Survival>(survival),
                              seed + kMixes * static_cast<std::uint32_t>(at)};
                if (seen.insert(hashOf(model.state(at, cut.survival, cut.seed))).second) cuts.push_back(cut);
            }
        }
    }
    return cuts;
}

/// Those from which a next run is started: a few of them, or with ZELOR_FAULT_SAMPLES=N so many (0: every
/// one).
std::vector<Cut> sampled(const std::vector<Cut>& all, std::size_t usual) {
    const char* wanted = getenv("ZELOR_FAULT_SAMPLES");
    const std::size_t samples = wanted != nullptr ? std::strtoul(wanted, nullptr, 10) : usual;
    if (samples == 0 || samples >= all.size()) return all;
    std::vector<Cut> some;
    for (std::size_t i = 0; i < samples; ++i)
        some.push_back(all[(2 * i + 1) * all.size() / (2 * samples)]);
    return some;
}

/// Judges every state, and starts something in some of them.
struct Checker {
    const DiskModel& model;
    std::function<std::string(const DiskModel&, const Cut&, const DiskTree&)> judge;  ///< what is wrong
    std::function<bool(const DiskTree&)> isRare;                        ///< states to start in besides
    std::function<std::string(const Cut&, const DiskTree&)> startNext;  ///< what is wrong afterwards

    /// True when without one of its flushes a power cut could do harm: for such a flush the judge can fail.
    bool needs(std::size_t flush) const {
        const DiskModel without = model.withoutFlush(flush);
        const std::vector<Cut> all = differentStates(without);
        return std::any_of(all.begin(), all.end(), [&](const Cut& cut) {
            return !judge(without, cut, without.state(cut.at, cut.survival, cut.seed)).empty();
        });
    }

    /// `needed`: how many of the flushes have to be there.
    void run(const std::string& what, std::size_t needed) const {
        const std::vector<Cut> all = differentStates(model);
        std::vector<Cut> rare;
        std::size_t wrong = 0;
        for (const Cut& cut : all) {
            const DiskTree state = model.state(cut.at, cut.survival, cut.seed);
            const std::string problem = judge(model, cut, state);
            if (!problem.empty() && ++wrong <= 5)
                ADD_FAILURE() << what << ", " << nameOf(cut) << ": " << problem;
            if (isRare && isRare(state)) rare.push_back(cut);
        }
        EXPECT_EQ(wrong, 0U) << what << ": of " << all.size() << " states";
        std::vector<Cut> started = sampled(all, 12);
        for (const Cut& cut : sampled(rare, 6))
            started.push_back(cut);
        std::size_t survived = 0;
        for (const Cut& cut : started) {
            const std::string problem = startNext(cut, model.state(cut.at, cut.survival, cut.seed));
            EXPECT_EQ(problem, "") << what << ", " << nameOf(cut);
            survived += problem.empty() ? 1 : 0;
        }
        std::size_t found = 0;
        for (const std::size_t flush : model.flushes()) {
            if (found < needed && needs(flush)) ++found;
        }
        EXPECT_EQ(found, needed) << what << ": flushes that are left out are not missed";
        std::printf(
            "power cut, %-20s %zu states of %zu operations, tried %4zu survived "
            "%4zu\n",
            what.c_str(), all.size(), model.operations(), started.size(), survived);
    }
};

class PowerCuts : public testing::Test {
  protected:
    const std::vector<std::string> tops = {"var", "opt", "Applications", "done"};
    const std::vector<std::string> stems = {"first-", "second-", "editor-", "Notes-"};

    /// What a child of the run left, which the run's own record must not outlive.
    struct Effect {
        std::string path;
        std::size_t made;  ///< the operation at which it was there
    };

    std::string root() const { return faults.root; }
    std::string archive(const std::string& stem) const {
        return readFile(faults.fixture.dir / ("repo/patches/" + stem + ".zip"));
    }

    /// Runs `command` under the shim; the model holds what it did.
    void record(DiskModel& model, const std::string& command, int status = 0) {
        const std::string file = faults.fixture.dir / "operations";
        const Ended ended = faults.run(command, {"ZELOR_RECORD=" + file, "ZELOR_CLOCK_FACTOR=100"});
        ASSERT_EQ(ended.exit(), status) << ended.errors << faults.log();
        ASSERT_TRUE(model.replay(readFile(file)));
        last = readTree(root(), tops);
        // Of the files that matter none was changed in a way that the shim does not see.
        const DiskTree own = model.state(model.operations(), Survival::all);
        for (const auto& [path, entry] : last) {
            const bool judged = path.rfind("var/zelor/", 0) == 0 || path.rfind("opt/", 0) == 0 ||
                                path.rfind("Applications/Notes", 0) == 0 ||
                                root() + "/" + path == faults.record;
            // What a lock file says counts only while it is locked.
            if (!judged || zelor::base::hasEnding(path, ".lock")) continue;
            EXPECT_EQ(textIn(own, path), *entry.text) << path << " was changed unseen";
        }
        for (const auto& [path, entry] : own)
            EXPECT_EQ(last.count(path), 1U) << path << " was removed unseen";
    }

    /// The list names no archive that is there and not whole; a missing one is fetched. What a download says
    /// is on the disk is.
    std::string judgeBuffer(const DiskTree& tree) const {
        std::string wrong;
        for (const std::string& stem : stems) {
            const auto found = tree.find("var/zelor/buffer/" + stem + ".zip");
            const bool listed =
                textIn(tree, "var/zelor/unzip/bufferdPatchesList.txt").find(stem) != std::string::npos;
            if (listed && found != tree.end() && *found->second.text != archive(stem))
                wrong += stem + " is listed and not whole; ";
            const std::string part = "opt/zelor/partial/" + stem + ".zip.part";
            std::istringstream version(textIn(tree, part + ".version"));
            std::string url, validator;
            std::size_t total = 0, kept = 0;
            if (!(version >> url >> validator >> total >> kept) || version.get() != '\n') continue;
            if (textIn(tree, part).substr(0, kept) != archive(stem).substr(0, kept))
                wrong += part + " would be resumed and is damaged; ";
        }
        return wrong;
    }

    /// No line of the record outlives what it says is installed.
    std::string judgeRecord(const DiskModel& model, const Cut& cut, const DiskTree& tree) const {
        std::string wrong;
        const std::string recorded = "\n" + textIn(tree, faults.record.substr(root().size() + 1));
        for (const auto& [id, effect] : effects) {
            if (recorded.find("\n" + id + "\n") != std::string::npos && !survives(model, cut, effect))
                wrong += id + " is recorded, and its installation may be lost; ";
        }
        if (recorded.find("\nERI-CVE-2\n") == std::string::npos) return wrong;
        for (const auto& [path, entry] : last) {
            if (path.rfind("Applications/Notes", 0) == 0 && textIn(tree, path) != *entry.text)
                wrong += path + " is not what was installed and recorded; ";
        }
        return wrong;
    }

    static bool survives(const DiskModel& model, const Cut& cut, const Effect& effect) {
        if (cut.at < effect.made) return false;
        if (model.syncedBetween(effect.made, cut.at)) return true;
        return cut.survival == Survival::all || (cut.survival == Survival::mixed && cut.seed % 2 == 0);
    }

    /// A download to be resumed whose bytes are not those of the archive.
    bool hasDamagedPart(const DiskTree& tree) const {
        return std::any_of(stems.begin(), stems.end(), [&](const std::string& stem) {
            const std::string part = "opt/zelor/partial/" + stem + ".zip.part";
            const std::string bytes = textIn(tree, part);
            return !bytes.empty() && textIn(tree, part + ".version").find("http") == 0 &&
                   archive(stem).compare(0, bytes.size(), bytes) != 0;
        });
    }

    void restore(const Cut& cut, DiskTree tree) {
        for (const auto& [id, effect] : effects) {
            if (!survives(*recording, cut, effect)) continue;
            for (const auto& [path, entry] : last) {
                if (path.rfind(effect.path, 0) == 0) tree[path] = entry;
            }
        }
        writeTree(tree, root(), tops);
        for (const std::string& top : tops)
            boost::filesystem::create_directories(root() + "/" + top);
    }

    std::string nextRun(const Cut& cut, const DiskTree& tree) {
        restore(cut, tree);
        const Ended ended = faults.run("run");
        std::string wrong;
        if (ended.exit() != 0) wrong += "the next run ended with " + std::to_string(ended.exit()) + "; ";
        if (faults.installed().size() != faults.keys().size()) wrong += "the next run did not install all; ";
        return wrong.empty() ? "" : wrong + ended.errors + faults.log();
    }

    std::string nextJob(const Cut& cut, const DiskTree& tree) {
        restore(cut, tree);
        const Ended ended = faults.run("buffer");
        std::string wrong;
        if (ended.exit() != 0) wrong += "the next job ended with " + std::to_string(ended.exit()) + "; ";
        for (const std::string& stem : stems) {
            if (readFile(faults.fixture.dir / ("var/zelor/buffer/" + stem + ".zip")) != archive(stem))
                wrong += stem + " is not whole in the buffer; ";
            if (readFile(faults.list).find(stem) == std::string::npos) wrong += stem + " is not listed; ";
        }
        return wrong.empty() ? "" : wrong + ended.errors + faults.log();
    }

    void checkJob(const std::string& what, const DiskModel& model, std::size_t needed) {
        Checker{model,
                [this](const DiskModel&, const Cut&, const DiskTree& tree) { return judgeBuffer(tree); },
                [this](const DiskTree& tree) { return hasDamagedPart(tree); },
                [this](const Cut& cut, const DiskTree& tree) { return nextJob(cut, tree); }}
            .run(what, needed);
    }

    FaultFixture faults;
    const DiskModel* recording = nullptr;
    std::map<std::string, Effect> effects;
    DiskTree last;  ///< what the recorded run left
};

TEST_F(PowerCuts, InABufferingJob) {
    faults.reset();
    DiskModel model(root(), tops);
    recording = &model;
    ASSERT_NO_FATAL_FAILURE(record(model, "buffer"));
    checkJob("buffering job", model, 3);  // each of the three archives before its name
}

TEST_F(PowerCuts, InAJobWhoseDownloadBreaksOff) {
    faults.reset();
    authoring::ServerFault fault;
    fault.dropAfter = 150;
    faults.fixture.addFault("/second-.zip", fault);
    fault.status = 503;
    for (int attempt = 0; attempt < 20; ++attempt)
        faults.fixture.addFault("/second-.zip", fault);
    DiskModel model(root(), tops);
    recording = &model;
    ASSERT_NO_FATAL_FAILURE(record(model, "buffer", 1));
    faults.fixture.clearFaults();
    checkJob("broken download", model, 3);
}

TEST_F(PowerCuts, InARun) {
    faults.reset();
    DiskModel model(root(), tops);
    recording = &model;
    ASSERT_NO_FATAL_FAILURE(record(model, "run"));
    for (const auto& [id, path] :
         std::map<std::string, std::string>{{"ERI-CCE-1", "done/first"},
                                            {"ERI-CCE-2", "done/second"},
                                            {"ERI-CVE-1", "Applications/Example Editor"}}) {
        const std::size_t noted = model.firstWrite(id + "\n");
        ASSERT_NE(noted, 0U) << id;
        effects[id] = {path, model.childBefore(noted)};
    }
    Checker{model,
            [this](const DiskModel& disk, const Cut& cut, const DiskTree& tree) {
                return judgeBuffer(tree) + judgeRecord(disk, cut, tree);
            },
            [this](const DiskTree& tree) { return hasDamagedPart(tree); },
            [this](const Cut& cut, const DiskTree& tree) { return nextRun(cut, tree); }}
        .run("run", effects.size());
}

/// An author's repository, of which each publication is recorded.
class PowerCutsOfAuthors : public testing::Test {
  protected:
    static std::string tool(std::vector<std::string> words) {
        words.insert(words.begin(), ZELOR_CONTENT_PROGRAM);
        return command(words);
    }
    static std::string command(const std::vector<std::string>& words) {
        const base::CommandResult result = base::runCommand(words, true, std::chrono::seconds(300));
        return result.status == 0 ? ""
                                  : "exit status " + std::to_string(result.status) + ": " + result.output;
    }
    std::vector<std::string> publishing(const std::string& scripts) {
        std::string entries;
        for (const char name : scripts) {
            const std::string file(1, name);
            const auto digit = name >= 'a' ? static_cast<char>(name - 'a' + 'A') : name;
            // "A" is what follows "a": the same entry with another script.
            const std::string id(1, digit);
            writeFile(dir / ("source/" + id + ".bsh"),
                      "echo " + file + ": " + std::string(3000, name) + "\n");
            entries += std::string(entries.empty() ? "" : ",") + R"({"identifier": "CCE-)" + id +
                       R"(", "platform": "cpe:/o:apple:mac_os_x", "file": ")" + id + R"(.bsh"})";
        }
        writeFile(dir / "source/manifest.json", "[" + entries + "]");
        return {"publish",   dir / "source/manifest.json", "--key", dir / "keys/repository.key", "--out",
                dir / "repo"};
    }

    static DiskTree contentIn(const DiskTree& tree) {
        DiskTree content;
        for (const auto& [path, entry] : tree) {
            if (path.rfind("repo/content/", 0) == 0 && path.find("/.") == std::string::npos)
                content[path] = entry;
        }
        return content;
    }

    /// What an agent gets is wholly the old or the new publication, with archives that match.
    static std::string judge(const DiskTree& tree, const DiskTree& before, const DiskTree& after) {
        const std::size_t content = hashOf(contentIn(tree));
        const bool isNew = content == hashOf(contentIn(after));
        if (!isNew && content != hashOf(contentIn(before)))
            return "the content is neither the old nor the new";
        std::string wrong;
        for (const auto& [path, entry] : isNew ? after : before) {
            if (path.rfind("repo/patches/", 0) != 0 || entry.kind != 'f') continue;
            if (path.find(".zip") == std::string::npos) continue;
            const std::string text = textIn(tree, path);
            if (text != textIn(after, path) && (isNew || text != *entry.text))
                wrong += path + " does not match; ";
        }
        return wrong;
    }

    void check(const std::string& what, const std::string& scripts, std::size_t needed) {
        const std::vector<std::string> tops = {"repo"};
        const std::string file = dir / "operations", place = dir.path().string();
        const DiskTree before = readTree(place, tops);
        DiskModel model(place, tops);
        std::vector<std::string> words = publishing(scripts);
        words.insert(words.begin(), {"/usr/bin/env", "LD_PRELOAD=" ZELOR_FAULT_SHIM, "ZELOR_RECORD=" + file,
                                     ZELOR_CONTENT_PROGRAM});
        ASSERT_EQ(command(words), "");
        ASSERT_TRUE(model.replay(readFile(file)));
        const DiskTree after = readTree(place, tops);
        const DiskTree modelled = model.state(model.operations(), Survival::all);
        ASSERT_EQ(modelled.size(), after.size()) << "something was made or removed unseen";
        for (const auto& [path, entry] : after) {
            if (zelor::base::hasEnding(path, ".lock")) continue;
            ASSERT_TRUE(textIn(modelled, path) == *entry.text) << path << " was changed unseen";
        }
        Checker{
            model,
            [&](const DiskModel&, const Cut&, const DiskTree& tree) { return judge(tree, before, after); },
            nullptr,
            [&](const Cut&, const DiskTree& tree) {
                writeTree(tree, place, tops);
                const std::string problem = tool(publishing(scripts));
                return problem + tool({"check", dir / "repo", "--key", dir / "keys/repository.pem"});
            }}
            .run(what, needed);
        writeTree(after, place, tops);
    }

    TempDir dir;
};

TEST_F(PowerCutsOfAuthors, InAPublication) {
    ASSERT_EQ(tool({"keygen", "--out", dir / "keys"}), "");
    boost::filesystem::create_directories(dir / "repo");
    ASSERT_NO_FATAL_FAILURE(check("first publication", "ab", 4));
    ASSERT_NO_FATAL_FAILURE(check("second publication", "Abc", 4));
    ASSERT_NO_FATAL_FAILURE(check("withdrawal", "A", 1));
}

}  // namespace

}  // namespace zelor::test
