#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "base/Strings.h"
#include "remediation/RecordAccess.h"
#include "remediation/apply/ContentWalk.h"

namespace zelor::remediation {
namespace {

/// Acts by the names of files, and records the calls.
struct Notes : ContentActor {
    bool applied = false;
    std::ostringstream text;

    bool isApplied() override { return applied; }
    std::optional<FetchedFile> fetch(parsedEriData& block) override {
        const std::string& name = RecordAccess::patchId(block);
        text << "fetch ";
        if (base::contains(name, "stop")) return std::nullopt;
        return FetchedFile{base::contains(name, "lost") ? "" : "/c/" + name, base::contains(name, "kept"),
                           false};
    }
    int apply(parsedEriData& /*block*/, const std::string& path,
              const platform::InstallerKind* kind) override {
        text << (kind == nullptr ? "run " : "install ");
        return base::contains(path, "seven") ? 7 : base::contains(path, "bad") ? kInstallFailed : kInstalled;
    }
    void settle(const BlockResult& result) override {
        result.state ? text << *result.state : text << '-';
        text << (result.appliedNow() ? "+" : "") << (result.needsReboot ? "R" : "")
             << (result.dropsBuffered ? "D" : "") << ' ';
    }
};

// Blocks are words: the name of a patch, "none" for an empty one; "KB" in front: for another platform.
creEriParsedData contentOf(const std::string& words, bool reboot) {
    creEriParsedData entry;
    std::istringstream in(words);
    for (std::string word; in >> word;) {
        parsedEriData block;
        if (base::hasBeginning(word, "KB")) RecordAccess::mskbId(block) = "KB1";
        RecordAccess::patchId(block) = word == "none" ? "" : word;
        RecordAccess::reboot(block) = reboot;
        RecordAccess::blocks(entry).push_back(block);
    }
    return entry;
}

struct Row {
    const char* blocks;
    bool applied;
    const char* notes;  ///< per block: what was asked for, then the state, + now, R reboot, D buffer
};

void expectNotes(const Row& row, void (*walk)(creEriParsedData&, ContentActor&)) {
    for (const bool reboot : {true, false}) {
        Notes notes;
        notes.applied = row.applied;
        creEriParsedData entry = contentOf(row.blocks, reboot);
        walk(entry, notes);
        std::string expected = row.notes;
        if (!reboot) expected.erase(std::remove(expected.begin(), expected.end(), 'R'), expected.end());
        EXPECT_EQ(base::trimmed(notes.text.str()), expected) << row.blocks;
    }
}

TEST(ContentWalk, EndsAConfigurationAtTheFirstBlockThatDecides) {
    for (const Row& row :
         {Row{"", false, "8"}, Row{"", true, "4"}, Row{"a.sh b.sh", true, "4R"},
          Row{"a.sh kept.sh", false, "fetch run -+ fetch run 4+RD"},
          Row{"kept.sh lost.sh b.sh", false, "fetch run -+D fetch 12"},
          Row{"kept-bad.sh b.sh", false, "fetch run 5"}, Row{"seven.sh", false, "fetch run 5"},
          Row{"a.sh nodot b.sh", false, "fetch run -+ 8"}, Row{"none", false, "8"},
          Row{"any.pkg", false, "fetch run 4+R"}, Row{"stop.sh b.sh", false, "fetch"}})
        expectNotes(row, walkConfiguration);
}

TEST(ContentWalk, TriesEveryBlockOfAPatch) {
    for (const Row& row :
         {Row{"", false, ""}, Row{"KB.pkg", true, "-"}, Row{"none nodot a.pkg", true, "5 4R 4R"},
          Row{"none nodot kept.pkg", false, "5 8 fetch install 4+RD"},
          Row{"kept-bad.pkg seven.dmg", false, "fetch install 5 fetch install 7"},
          Row{"lost.pkg odd.exe b.app", false, "fetch 12 fetch 5 fetch install 4+R"},
          Row{"a.pkg stop.pkg b.pkg", false, "fetch install 4+R fetch"}})
        expectNotes(row, walkPatch);
}

}  // namespace
}  // namespace zelor::remediation
