#pragma once

#include <dlfcn.h>

#include <cstring>

#include "tests/faults/OperationLog.h"

/// What the parts of the shim share.
namespace zelor::test::shim {

enum Kind {
    Write,
    Torn,
    Read,
    Open,
    Create,
    Rename,
    Mkdir,
    Unlink,
    Fsync,
    Truncate,
    Mode,
    Copy,
    List,
    Lock,
    Spawn,
    Pipe,
    Thread,
    Socket,
    Connect,
    Memory,
    Kinds
};
template <class Function>
Function real(const char* name) {
    void* found = dlsym(RTLD_NEXT, name);
    Function function;
    std::memcpy(&function, &found, sizeof function);
    return function;
}
// One look-up for each function, however often it is called.
#define REAL(name) static const auto next = real<decltype(&::name)>(#name)

/// True when this call has to fail; errno is set then.
bool fails(Kind kind);
/// Memory may run out from now on.
void beginWork();
int errorOfFaults();
extern OperationLog operations;

}  // namespace zelor::test::shim
