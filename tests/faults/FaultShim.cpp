// Preloaded into one process (Linux, glibc): lets the n-th call of a kind fail, and the clocks run otherwise.
// ZELOR_FAULT="KIND FIRST COUNT ERRNO": calls FIRST to FIRST+COUNT-1 of the kind fail; COUNT 0: all from
// FIRST. ZELOR_FAULT_COUNTS=FILE: the number of calls of each kind, written at the end. ZELOR_CLOCK_FACTOR=N:
// time goes N times as fast. ZELOR_CLOCK_BACK="FIRST SECONDS": from that look at the time of day on, it is so
// much earlier. ZELOR_RECORD=FILE: what it does to files, in order (OperationLog.h). Processes that the
// process starts are left alone.

#include "tests/faults/FaultShim.h"

#include <pthread.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <initializer_list>

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* old, size_t size);

using namespace zelor::test::shim;

namespace {

constexpr const char* kNames[Kinds] = {"write",  "torn",  "read",     "open",   "create",  "rename", "mkdir",
                                       "unlink", "fsync", "truncate", "mode",   "copy",    "list",   "lock",
                                       "spawn",  "pipe",  "thread",   "socket", "connect", "memory"};

std::atomic<long> counts[Kinds];
std::atomic<bool> started{false};
std::atomic<bool> workBegan{false};
int faulty = Kinds;
long first = 0, count = 0;
int faultErrno = 0;
long clockFactor = 1, backFrom = 0, backSeconds = 0;
std::atomic<long> looks{0};
timespec begin[2];
char countsFile[4096];

}  // namespace

namespace zelor::test::shim {

OperationLog operations;

bool fails(Kind kind) {
    if (!started || (kind == Memory && !workBegan)) return false;
    const long number = ++counts[kind];
    if (kind != faulty || number < first || (count != 0 && number >= first + count)) return false;
    errno = faultErrno;
    return true;
}

void beginWork() {
    workBegan = true;
}

int errorOfFaults() {
    return faultErrno;
}

}  // namespace zelor::test::shim

namespace {

void readClock(clockid_t clock, timespec* time) {
    syscall(SYS_clock_gettime, clock, time);
}

struct Start {
    Start() {
        readClock(CLOCK_REALTIME, &begin[0]);
        readClock(CLOCK_MONOTONIC, &begin[1]);
        char name[32];
        const char* fault = getenv("ZELOR_FAULT");
        if (fault != nullptr && sscanf(fault, "%31s %ld %ld %d", name, &first, &count, &faultErrno) == 4) {
            for (int kind = 0; kind < Kinds; ++kind) {
                if (strcmp(name, kNames[kind]) == 0) faulty = kind;
            }
            if (faulty == Kinds) abort();
        }
        if (const char* factor = getenv("ZELOR_CLOCK_FACTOR")) clockFactor = atol(factor);
        if (const char* back = getenv("ZELOR_CLOCK_BACK")) sscanf(back, "%ld %ld", &backFrom, &backSeconds);
        if (const char* file = getenv("ZELOR_FAULT_COUNTS")) strncpy(countsFile, file, sizeof countsFile - 1);
        if (const char* file = getenv("ZELOR_RECORD")) operations.begin(file);
        for (const char* own : {"LD_PRELOAD", "ZELOR_FAULT", "ZELOR_FAULT_COUNTS", "ZELOR_CLOCK_FACTOR",
                                "ZELOR_CLOCK_BACK", "ZELOR_RECORD"})
            unsetenv(own);
        started = true;
    }
    ~Start() {
        started = false;
        FILE* out = countsFile[0] == '\0' ? nullptr : fopen(countsFile, "w");
        if (out == nullptr) return;
        for (int kind = 0; kind < Kinds; ++kind)
            fprintf(out, "%s %ld\n", kNames[kind], counts[kind].load());
        fclose(out);
    }
} start;

}  // namespace

extern "C" {

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
    REAL(posix_spawn);
    return fails(Spawn) ? errno : next(pid, path, actions, attributes, words, environment);
}
int pipe2(int* ends, int flags) {
    REAL(pipe2);
    return fails(Pipe) ? -1 : next(ends, flags);
}
int pipe(int* ends) {
    return pipe2(ends, 0);
}
int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*work)(void*), void* data) {
    REAL(pthread_create);
    return fails(Thread) ? errno : next(thread, attributes, work, data);
}
int socket(int domain, int type, int protocol) {
    REAL(socket);
    return fails(Socket) ? -1 : next(domain, type, protocol);
}
int connect(int fd, const sockaddr* address, socklen_t size) {
    REAL(connect);
    return fails(Connect) ? -1 : next(fd, address, size);
}

void* malloc(size_t size) {
    return fails(Memory) ? nullptr : __libc_malloc(size);
}
void* calloc(size_t number, size_t size) {
    return fails(Memory) ? nullptr : __libc_calloc(number, size);
}
void* realloc(void* old, size_t size) {
    return fails(Memory) ? nullptr : __libc_realloc(old, size);
}

int clock_gettime(clockid_t clock, timespec* time) {
    readClock(clock, time);
    if (!started || (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC)) return 0;
    const timespec& from = begin[clock == CLOCK_REALTIME ? 0 : 1];
    const long passed = (time->tv_sec - from.tv_sec) * 1000000000L + time->tv_nsec - from.tv_nsec;
    const long now = from.tv_nsec + passed * clockFactor;
    time->tv_sec = from.tv_sec + now / 1000000000L;
    time->tv_nsec = now % 1000000000L;
    if (clock == CLOCK_REALTIME && backFrom != 0 && ++looks >= backFrom) time->tv_sec -= backSeconds;
    return 0;
}
time_t time(time_t* out) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out != nullptr) *out = now.tv_sec;
    return now.tv_sec;
}
int gettimeofday(timeval* out, void* /*zone*/) {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    out->tv_sec = now.tv_sec;
    out->tv_usec = now.tv_nsec / 1000;
    return 0;
}
int clock_nanosleep(clockid_t clock, int flags, const timespec* wanted, timespec* left) {
    REAL(clock_nanosleep);
    if (flags != 0) return next(clock, flags, wanted, left);
    const long time = (wanted->tv_sec * 1000000000L + wanted->tv_nsec) / clockFactor;
    const timespec shorter{time / 1000000000L, time % 1000000000L};
    return next(clock, 0, &shorter, left);
}
int nanosleep(const timespec* wanted, timespec* left) {
    const int error = clock_nanosleep(CLOCK_MONOTONIC, 0, wanted, left);
    if (error != 0) errno = error;
    return error == 0 ? 0 : -1;
}

}  // extern "C"
