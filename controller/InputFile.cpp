#include "controller/InputFile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "base/Files.h"
#include "controller/InputError.h"

namespace zelor::controller {

namespace {

std::string limitText(std::size_t bytes) {
    const std::size_t mib = bytes >> 20U;
    return mib % 1024 == 0 ? std::to_string(mib / 1024) + " GiB" : std::to_string(mib) + " MiB";
}

}  // namespace

std::string inputName(const std::string& path) {
    return path == "-" ? "standard input" : path;
}

std::string readInput(const std::string& path, const InputKind& kind) {
    const bool standardInput = path == "-";
    const std::string name = inputName(path);
    base::UniqueFd file;
    if (!standardInput) file = base::openFile(path, O_RDONLY | O_NOCTTY);
    if (!standardInput && !file) {
        throw InputError("cannot open " + path + ": " + base::errorText(errno) + "; name " + kind.name +
                         ", or - for standard input");
    }
    std::string text;
    std::string piece(std::size_t{1} << 16U, '\0');
    for (;;) {
        const ssize_t got = ::read(standardInput ? STDIN_FILENO : file.get(), piece.data(), piece.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw InputError("cannot read " + name + ": " + base::errorText(errno));
        if (got == 0) return text;
        text.append(piece, 0, static_cast<std::size_t>(got));
        if (text.size() > kind.limit)
            throw InputError(name + " is larger than " + limitText(kind.limit) + "; " + kind.remedy);
    }
}

}  // namespace zelor::controller
