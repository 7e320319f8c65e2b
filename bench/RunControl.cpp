// What the library itself costs, with content in memory and nothing to install: runs, collective results and
// mass setters, the record of what is applied, polling.
// usage: zelor_bench_run_control [Google Benchmark's options]
//        zelor_bench_run_control --once WORK REQUESTS   one pass; for callgrind
//        zelor_bench_run_control --heap WORK REQUESTS   one pass, the most heap it had in use on standard
//        output

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "base/SystemRoot.h"
#include "bench/HeapMeter.h"
#include "bench/MemoryAgent.h"
#include "collaborators/CreCacher.h"
#include "remediation/RecordAccess.h"
#include "remediation/RemediationManager.h"
#include "remediation/RunParts.h"
#include "tests/support/TempDir.h"

/// Makes states that no input reaches.
struct RemediationManagerPeer {
    static void addRow(RemediationManager& manager, const remediateMetadata& row) {
        manager.remMetadataForCVE.push_back(row);
        manager.parts->progress.addRemediation(row);
    }
};

// callgrind counts only what runs below this function.
extern "C" __attribute__((noinline)) void zelor_bench_measured(const std::function<void()>& work) {
    work();
}

namespace {

using Clock = std::chrono::steady_clock;
using Requests = std::map<std::string, std::string>;
using zelor::bench::HeapMeter;

constexpr int kDistinctContents = 1000;
constexpr int kRemediationsPerCpe = 2;
constexpr std::chrono::milliseconds kPollInterval{100};
const char* const kRecord = "var/log/zelor/ZelorInstalledPatches.txt";

/// Set by a work that ends before its clean-up.
Clock::time_point measuredEnd;

std::string numbered(const char* text, int number) {
    char digits[16];
    std::snprintf(digits, sizeof digits, "%07d", number);
    return std::string(text) + digits;
}

std::string keyOf(int number) {
    return numbered("cpe:/o:apple:mac_os_x,cpe:/a:example:product-", number) + "||Example Product 2.1";
}

/// One patch of another platform, which a run leaves alone.
parseOnlyMetadata contentOf(int number) {
    parsedEriData block;
    RecordAccess::eriId(block) = numbered("ERI-7001-", number);
    RecordAccess::patchId(block) = numbered("product-", number) + ".pkg";
    RecordAccess::productCpe(block) = numbered("cpe:/a:example:product-", number);
    RecordAccess::instructions(block) = "Install the package and restart the product.";
    RecordAccess::md5sum(block) = "0123456789abcdef0123456789abcdef";
    RecordAccess::mskbId(block) = "KB0000000";
    parseOnlyMetadata metadata;
    creEriParsedData& entry = RecordAccess::creEriData(metadata);
    RecordAccess::creId(entry) = numbered("CRE-", number);
    RecordAccess::eriIds(entry).push_back(RecordAccess::eriId(block));
    RecordAccess::blocks(entry).push_back(block);
    return metadata;
}

/// The files and the content of all works.
class Ground {
  public:
    Ground() {
        setSystemRoot(dir.path().string());
        zelor::test::writeFile(dir / "tools/sw_vers", "#!/bin/sh\necho Mac OS X\n");
        boost::filesystem::permissions(dir.path() / "tools/sw_vers", boost::filesystem::owner_all);
        setenv("PATH", (dir / "tools:/usr/bin:/bin").c_str(), 1);
        zelor::test::writeFile(dir / kRecord, "");
        boost::filesystem::create_directories(dir.path() / "content");
        for (int i = 0; i < kDistinctContents; ++i)
            contents_.push_back(contentOf(i));
        zelor::bench::MemoryAgent::get().content = [this](const std::string& identifier) {
            return contents_[static_cast<std::size_t>(std::atoi(identifier.c_str() + 9)) % contents_.size()];
        };
    }

    std::unique_ptr<RemediationManager> manager(const Requests& requests) const {
        auto made = std::make_unique<RemediationManager>(dir / "opt");
        made->setContentDownloadDir(dir / "content");
        made->setovalIdMap(requests);
        return made;
    }

    zelor::test::TempDir dir;

  private:
    std::vector<parseOnlyMetadata> contents_;
};

Ground& ground() {
    static Ground one;
    return one;
}

Requests requestsFor(int count) {
    Requests requests;
    for (int i = 0; i < count; ++i)
        requests.emplace_hint(requests.end(), keyOf(i), numbered("CVE-2014-", i));
    return requests;
}

/// One pass over something prepared; its results are freed after the clock has stopped.
using Work = std::function<void()>;
using Prepare = std::function<Work(int count)>;

/// Only the records, which any implementation has to keep.
Work prepareRecords(int count) {
    auto requests = std::make_shared<Requests>(requestsFor(count));
    auto rows = std::make_shared<std::vector<remediateMetadata>>();
    return [requests, rows] {
        for (const auto& [key, identifier] : *requests) {
            remediateMetadata row;
            row.setCombinedCpes(key);
            row.setCveOrCceId(identifier);
            row.setPlatformCpe("cpe:/o:apple:mac_os_x");
            row.setProductCpe(key.substr(22, 30));
            row.setPackageName("Example Product 2.1");
            parseOnlyMetadata content = CreCacher::GetInstance("", "")->getCre("", "", identifier);
            row.setcreEriData(std::move(RecordAccess::creEriData(content)));
            rows->push_back(std::move(row));
        }
    };
}

Work prepareRun(int count) {
    const std::shared_ptr<RemediationManager> manager = ground().manager(requestsFor(count));
    return [manager] { manager->concertedRemediationStart(); };
}

Requests tenthOf(int count) {
    Requests cancelled;
    for (int i = 0; i < count; i += 10)
        cancelled.emplace_hint(cancelled.end(), keyOf(i), "");
    return cancelled;
}

Work prepareCancelledRun(int count, const Requests& cancelled) {
    const std::shared_ptr<RemediationManager> manager = ground().manager(requestsFor(count));
    manager->setCancelRemMap(cancelled);
    return [manager] { manager->concertedRemediationStart(); };
}

/// Every CPE needs several remediations; sets their results, then calls each mass setter.
Work prepareCollective(int count, const Requests& cancelled) {
    const std::shared_ptr<RemediationManager> manager = ground().manager(requestsFor(count));
    auto keys = std::make_shared<std::vector<std::string>>();
    for (int i = 0; i < count; ++i) {
        remediateMetadata row;
        keys->push_back(keyOf(i / kRemediationsPerCpe));
        row.setCombinedCpes(keys->back());
        row.setCreEriDataPresent(true);
        RemediationManagerPeer::addRow(*manager, row);
    }
    manager->setCancelRemMap(cancelled);
    return [manager, keys] {
        for (const std::string& key : *keys) {
            manager->setAbortedRemStatusToAborted();
            if (!manager->thisRemIsAborted(key))
                manager->insertRemProgressInMap(key, RemediationManager::REM_SUCCESS);
        }
        manager->setRemainingRemsStatusToFailed();
        manager->setAllRemainingRemStatusToAborted();
        manager->setAllRemsStatusToFailed();
        manager->setAbortedRemStatusToAborted();
    };
}

/// Every request is asked of a record with as many lines.
Work prepareApplied(int count) {
    std::string lines;
    auto entries = std::make_shared<std::vector<creEriParsedData>>(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        lines += numbered("ERI-7001-", i) + "\n";
        RecordAccess::eriIds((*entries)[static_cast<std::size_t>(i)]).push_back(numbered("ERI-7001-", i));
    }
    zelor::test::writeFile(ground().dir / kRecord, lines);
    const std::shared_ptr<RemediationManager> manager = ground().manager({});
    return [manager, entries] {
        for (creEriParsedData& entry : *entries) {
            if (!manager->verifyIfAlreadyAppliedRem(entry)) std::abort();
        }
    };
}

/// A run with a poll ten times a second from another thread.
Work preparePolledRun(int count) {
    const std::shared_ptr<RemediationManager> manager = ground().manager(requestsFor(count));
    return [manager] {
        std::thread poller([&] {
            for (auto next = Clock::now(); !manager->getRemDone(); std::this_thread::sleep_until(next)) {
                benchmark::DoNotOptimize(manager->getRemediationProgressMap());
                next += kPollInterval;
            }
        });
        manager->concertedRemediationStart();
        measuredEnd = Clock::now();
        poller.join();
    };
}

const std::map<std::string, Prepare>& works() {
    static const std::map<std::string, Prepare> kAll = {
        {"records", prepareRecords},
        {"run", prepareRun},
        {"run_tenth_cancelled", [](int count) { return prepareCancelledRun(count, tenthOf(count)); }},
        {"run_all_cancelled", [](int count) { return prepareCancelledRun(count, requestsFor(count)); }},
        {"collective", [](int count) { return prepareCollective(count, {}); }},
        {"collective_tenth_cancelled", [](int count) { return prepareCollective(count, tenthOf(count)); }},
        {"collective_all_cancelled", [](int count) { return prepareCollective(count, requestsFor(count)); }},
        {"applied", prepareApplied},
        {"run_polled", preparePolledRun}};
    return kAll;
}

/// Wall time, and as `cpu_ms` the processor time of all threads.
void measure(benchmark::State& state, const Prepare& prepare, int count) {
    std::clock_t used = 0;
    for ([[maybe_unused]] const auto _ : state) {
        const Work work = prepare(count);
        measuredEnd = {};
        HeapMeter::release();
        const std::clock_t usedBefore = std::clock();
        const auto start = Clock::now();
        zelor_bench_measured(work);
        const auto end = measuredEnd == Clock::time_point() ? Clock::now() : measuredEnd;
        used += std::clock() - usedBefore;
        state.SetIterationTime(std::chrono::duration<double>(end - start).count());
    }
    state.counters["cpu_ms"] =
        static_cast<double>(used) * 1000 / CLOCKS_PER_SEC / static_cast<double>(state.iterations());
}

void registerAll() {
    for (const auto& [name, prepare] : works()) {
        for (const int count : {1000, 10000, 100000, 1000000}) {
            const auto body = [work = prepare, count](benchmark::State& state) {
                measure(state, work, count);
            };
            benchmark::RegisterBenchmark((name + "/" + std::to_string(count)).c_str(), body)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond)
                ->Iterations(std::max(1, 50000 / count));
        }
    }
}

int runOnce(const std::string& name, const std::string& count, bool heap) {
    const auto found = works().find(name);
    if (found == works().end() || std::atoi(count.c_str()) <= 0) {
        std::fprintf(stderr, "zelor_bench_run_control: no work '%s' of %s requests\n", name.c_str(),
                     count.c_str());
        return 2;
    }
    const Work work = found->second(std::atoi(count.c_str()));
    if (heap) HeapMeter::start();
    zelor_bench_measured(work);
    if (heap) std::printf("%zu\n", HeapMeter::peak());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ground();
    const std::string mode = argc == 4 ? argv[1] : "";
    if (mode == "--once" || mode == "--heap") return runOnce(argv[2], argv[3], mode == "--heap");
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    registerAll();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
