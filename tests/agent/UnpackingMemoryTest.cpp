#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>

#include "agent/archive/ArchiveExtractor.h"
#include "agent/trust/BundleManifest.h"
#include "support/ArchiveBuilder.h"
#include "support/TempDir.h"

namespace zelor::agent {
namespace {

namespace fs = boost::filesystem;
using test::ArchiveBuilder;
using test::TempDir;
using test::writeFile;

std::string little(std::uint64_t number, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; ++i, number >>= 8U)
        text += static_cast<char>(number & 0xffU);
    return text;
}

/// An archive of empty entries with these names, whose central directory lists directories with other modes.
std::string bareArchive(const std::vector<std::string>& names) {
    std::string files, directory;
    const std::string rest = little(0, 4) + little(0, 4) + little(0, 4) + little(0, 4);  // time, CRC, sizes
    for (const std::string& name : names) {
        const std::string size = little(name.size(), 2);
        directory += "PK\x01\x02" + little(0x031e, 2) + little(10, 2) + little(0, 4) + rest + size +
                     little(0, 8) + little((S_IFDIR | 0750U) << 16U, 4) + little(files.size(), 4) + name;
        files += "PK\x03\x04" + little(10, 2) + little(0, 4) + rest + size + little(0, 2) + name;
    }
    const std::string count = little(std::min<std::size_t>(names.size(), 0xffff), 2);
    return files + directory + "PK\x05\x06" + little(0, 4) + count + count + little(directory.size(), 4) +
           little(files.size(), 4) + little(0, 2);
}

long peakKiB() {
    struct rusage usage {};
    ::getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

/// By how many KiB a process grows at most while it unpacks the archive and lists it as a bundle.
long growthOf(const std::string& archive, const std::string& out, bool& unpacked) {
    struct Result {
        long growth;
        bool unpacked;
    } result{};
    int ends[2];
    EXPECT_EQ(::pipe(ends), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        const long before = peakKiB();
        try {
            ArchiveExtractor().extract(archive, out);
            forEachManifestLine(out, [](const std::string&) {});
            result.unpacked = true;
        } catch (const std::exception&) {
            result.unpacked = false;
        }
        result.growth = peakKiB() - before;
        const bool sent = ::write(ends[1], &result, sizeof result) == sizeof result;
        ::_exit(sent ? 0 : 1);
    }
    EXPECT_EQ(::read(ends[0], &result, sizeof result), static_cast<ssize_t>(sizeof result));
    ::waitpid(child, nullptr, 0);
    ::close(ends[0]);
    ::close(ends[1]);
    unpacked = result.unpacked;
    return result.growth;
}

// With ZELOR_FULL_ARCHIVES set, at the limits themselves, which may take minutes; else at a tenth of them.
TEST(UnpackingMemory, IsBoundedForAnyArchive) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizers keep memory of their own for each block";
#endif
    const TempDir dir;
    const std::string archive = dir / "patch.zip";
    const int scale = std::getenv("ZELOR_FULL_ARCHIVES") == nullptr ? 10 : 1;
    writeFile(archive, ArchiveBuilder().file("patch.pkg", std::string(1U << 20U, 'p')).finish());
    bool unpacked = false;
    const long normal = growthOf(archive, dir / "normal", unpacked);
    ASSERT_TRUE(unpacked);
    const auto padded = [](int number, std::size_t size) {
        std::string name = std::to_string(number);
        return name + std::string(size - name.size(), 'd') + '/';
    };
    using Names = std::vector<std::string>;
    const auto flat = [&](int count, std::size_t size) {
        Names all;
        for (int i = 0; i < count; ++i)
            all.push_back(padded(i, size));
        return all;
    };
    const auto deep = [&] {
        Names all(static_cast<std::size_t>(1500 / scale));
        for (std::size_t i = 0; i < all.size() * 63; ++i)
            all[i / 63] += padded(static_cast<int>(i / 63), 11);
        return all;
    };
    struct Case {
        const char* name;
        std::function<Names()> entries;
        bool good;
    };
    const Case cases[] = {
        {"as many entries as allowed", [&] { return flat(100'000 / scale, 110); }, true},
        {"long names", [&] { return flat(60'000 / scale, 230); }, true},
        {"deep names", deep, true},
        {"more entries than allowed", [&] { return flat(300'000, 6); }, false},
        {"a larger directory than allowed", [&] { return flat(80'000, 240); }, false},
    };
    for (const Case& c : cases) {
        // In another process: in this one, unpacking would reuse freed memory without growing.
        const pid_t writer = ::fork();
        if (writer == 0) {
            writeFile(archive, bareArchive(c.entries()));
            ::_exit(0);
        }
        ::waitpid(writer, nullptr, 0);
        const long growth = growthOf(archive, dir / "out", unpacked);
        EXPECT_EQ(unpacked, c.good) << c.name;
        std::printf("grows by %ld KiB for %s, by %ld KiB for one file\n", growth, c.name, normal);
        EXPECT_LE(growth, normal + (64 << 10) / scale) << c.name;
        fs::remove_all(dir / "out");
    }
}

}  // namespace
}  // namespace zelor::agent
