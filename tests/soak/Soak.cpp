// Runs and buffering jobs alternate in one process, with runs of the controller in others, and with random
// faults, cancels and kills; watches memory, descriptors, threads and children. Exits with 1 when they grow
// or a run misbehaves. usage: zelor_soak SECONDS SEED [BYTES LEAKED AT EACH STEP]   (a leak shows that the
// test can fail)

#include <dirent.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <boost/thread/thread.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <thread>

#include "tests/faults/FaultFixture.h"

using zelor::authoring::ServerFault;
using zelor::test::FaultFixture;

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct Sample {
    long rss, descriptors, threads, children;
};

long entries(const char* directory) {
    long count = 0;
    for (const auto& entry : boost::filesystem::directory_iterator(directory))
        count += entry.path().empty() ? 0 : 1;
    return count;
}

long childProcesses() {
    long count = 0;
    for (const auto& task : boost::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream children(task.path().string() + "/children");
        for (std::string child; children >> child;)
            ++count;
    }
    return count;
}

Sample sample() {
    long pages = 0;
    std::ifstream("/proc/self/statm").ignore(100, ' ') >> pages;
    return {pages * (sysconf(_SC_PAGESIZE) / 1024), entries("/proc/self/fd"), entries("/proc/self/task"),
            childProcesses()};
}

/// The median of one measure over the n-th third of the samples.
long median(const std::vector<Sample>& samples, std::size_t third, long Sample::*measure) {
    std::vector<long> values;
    for (std::size_t i = samples.size() * third / 3; i < samples.size() * (third + 1) / 3; ++i)
        values.push_back(samples[i].*measure);
    std::nth_element(values.begin(), values.begin() + static_cast<long>(values.size() / 2), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

bool flat(const char* name, const std::vector<Sample>& samples, long Sample::*measure, double share,
          long more) {
    const long medians[] = {median(samples, 0, measure), median(samples, 1, measure),
                            median(samples, 2, measure)};
    const bool good = static_cast<double>(medians[2]) <=
                      static_cast<double>(medians[1]) * (1 + share) + static_cast<double>(more);
    std::printf("%-12s by thirds: %ld, %ld, %ld: %s\n", name, medians[0], medians[1], medians[2],
                good ? "flat" : "GROWS");
    return good;
}

class Soak {
  public:
    explicit Soak(unsigned seed) : engine_(seed) {
        setenv("PATH", (fixture_.tools + ":" + getenv("PATH")).c_str(), 1);
        setenv("ZELOR_REHEARSAL_ROOT", fixture_.root.c_str(), 1);
        signal(SIGXFSZ, SIG_IGN);
        fixture_.reset();
        boost::filesystem::create_directories(fixture_.fixture.dir.path() / "content");
        // Long enough on the wire to be cancelled there.
        std::string text = ": ";
        while (text.size() < 300000)
            text += static_cast<char>('a' + random() % 26);
        fixture_.fixture.addScript("CCE-3", "long-", text + "\n");
    }

    void step() {
        const unsigned choice = random() % 10;
        if (random() % 4 == 0) fixture_.reset();
        if (random() % 3 == 0) addFault();
        const bool fullDisk = random() % 12 == 0;
        if (fullDisk) limitFiles(random() % 30000);
        if (choice < 6) {
            run();
        } else if (choice < 9) {
            buffer();
        } else {
            process();
        }
        if (fullDisk) limitFiles(RLIM_INFINITY);
        fixture_.fixture.clearFaults();
        fixture_.fixture.takeAnswers();
        checkRecord();
    }

    void report() const {
        std::printf(
            "%ld runs and %ld buffering jobs in this process (%ld cancelled), %ld processes (%ld killed), "
            "%ld faults of the repository, %ld full disks\n",
            runs_, jobs_, cancels_, processes_, kills_, faults_, fullDisks_);
    }
    bool good() const { return good_; }

  private:
    unsigned random() { return static_cast<unsigned>(engine_()); }
    void wrong(const std::string& what) {
        good_ = false;
        std::printf("WRONG after %ld runs and %ld jobs: %s\n", runs_, jobs_, what.c_str());
    }

    void addFault() {
        static const char* const kPaths[] = {"/content/", "/patches/", "/patches/long-", "/speed.bin"};
        ServerFault fault;
        switch (random() % 6) {
            case 0:
                fault.status = random() % 2 == 0 ? 503 : 404;
                break;
            case 1:
                fault.dropAfter = random() % 3000;
                break;
            case 2:
                fault.announcedLength = random() % 100000;
                break;
            case 3:
                fault.withoutLength = true;
                break;
            case 4:
                fault.bytesPerSecond = 200000;
                break;
            default:
                fault.status = 302;
                fault.headers = {{"Location", "file:///etc/passwd"}};
                break;
        }
        fixture_.fixture.addFault(kPaths[random() % 4], fault);
        ++faults_;
    }

    void limitFiles(rlim_t bytes) {
        struct rlimit limit {};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = std::min(bytes, limit.rlim_max);
        setrlimit(RLIMIT_FSIZE, &limit);
        fullDisks_ += bytes == RLIM_INFINITY ? 0 : 1;
    }

    /// When to cancel; never in two of three cases.
    Clock::time_point cancelTime() {
        return random() % 3 == 0 ? Clock::now() + milliseconds(random() % 400) : Clock::time_point::max();
    }

    void run() {
        zelor::agent::startNewRun();
        RemediationManager manager(fixture_.fixture.dir / "opt/zelor");
        manager.setContentDownloadDir(fixture_.fixture.dir / "content");
        manager.setFirstRemediationAfterScan(random() % 2 == 0);
        auto requests = requests_;
        if (random() % 5 == 0) requests["cpe:/o:none||"] = "CVE-404";
        manager.setovalIdMap(requests);
        const auto cancel = cancelTime();
        const bool single = random() % 2 == 0;
        bool cancelled = false;
        manager.remediate(true);
        while (!manager.getRemDone()) {
            if (!cancelled && Clock::now() >= cancel) {
                cancelled = true;
                if (single) manager.setCancelRemMap({{"cpe:/o:c||", ""}, {"cpe:/o:a||", ""}});
                if (!single) manager.setCancelAllRem(true);
            }
            std::this_thread::sleep_for(milliseconds(1));
        }
        ++runs_;
        cancels_ += cancelled ? 1 : 0;
        for (const auto& [key, value] : manager.getRemediationProgressMap()) {
            if (value < 4) wrong(key + " was left at " + std::to_string(value));
        }
    }

    void buffer() {
        RemediationManager manager(fixture_.fixture.dir / "opt/zelor");
        const auto cancel = cancelTime();
        std::atomic<bool> done{false};
        boost::thread job([&] {
            try {
                manager.bufferPatches(requests_);
            } catch (const boost::thread_interrupted&) {
                // a cancel ends it so
            }
            done = true;
        });
        while (!done && Clock::now() < cancel)
            std::this_thread::sleep_for(milliseconds(1));
        if (!done) {
            manager.setCancelAllRem(true);
            job.interrupt();
            ++cancels_;
        }
        job.join();
        ++jobs_;
    }

    void process() {
        ++processes_;
        const auto time = random() % 3 == 0 ? "0." + std::to_string(100 + random() % 300) : std::string("60");
        const auto ended = fixture_.run(random() % 2 == 0 ? "run" : "buffer", {},
                                        {"timeout", "-s", random() % 2 == 0 ? "KILL" : "INT", time});
        kills_ += time == "60" ? 0 : 1;
        if (!ended.inTime) wrong("a process did not end");
        // The tools of a killed process keep running; the next step must not race with them.
        std::this_thread::sleep_for(milliseconds(time == "60" ? 0 : 300));
    }

    void checkRecord() {
        std::set<std::string> allowed = {"ERI-CCE-3\n"};
        for (const std::string& id : fixture_.installed())
            allowed.insert(id + "\n");
        for (const std::string& line : FaultFixture::lines(fixture_.record)) {
            if (allowed.count(line) == 0) wrong("a line in the record: " + line);
        }
    }

    std::mt19937 engine_;
    FaultFixture fixture_;
    const std::map<std::string, std::string> requests_ = {{"cpe:/o:a||", "CCE-1"},
                                                          {"cpe:/o:b||", "CCE-2"},
                                                          {"cpe:/o:c||", "CCE-3"},
                                                          {"cpe:/a:example:editor||Editor", "CVE-1"},
                                                          {"cpe:/a:example:notes||Notes", "CVE-2"}};
    long runs_ = 0, jobs_ = 0, cancels_ = 0, processes_ = 0, kills_ = 0, faults_ = 0, fullDisks_ = 0;
    bool good_ = true;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: zelor_soak SECONDS SEED [BYTES LEAKED AT EACH STEP]\n", stderr);
        return 2;
    }
    const auto end = Clock::now() + std::chrono::seconds(std::atol(argv[1]));
    const auto leak = static_cast<std::size_t>(argc > 3 ? std::atol(argv[3]) : 0);
    std::vector<std::string> leaked;
    std::vector<Sample> samples;
    samples.reserve(1U << 20U);
    Soak soak(static_cast<unsigned>(std::strtoul(argv[2], nullptr, 10)));
    while (Clock::now() < end) {
        soak.step();
        if (leak > 0) leaked.emplace_back(leak, 'x');
        samples.push_back(sample());
    }
    soak.report();
    const bool memory = flat("memory (KiB)", samples, &Sample::rss, 0.03, 1024);
    const bool descriptors = flat("descriptors", samples, &Sample::descriptors, 0, 0);
    const bool threads = flat("threads", samples, &Sample::threads, 0, 0);
    const bool children = flat("children", samples, &Sample::children, 0, 0);
    return soak.good() && memory && descriptors && threads && children ? 0 : 1;
}
