#include "remediation/buffer/BufferedList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

#include "base/Strings.h"

namespace zelor::remediation {

bool bufferedLineMatches(const std::string& line, const std::string& patchName, const std::string& md5sum) {
    if (!base::contains(line, patchName)) return false;
    const auto fields = base::splitCompressed(line, '=');
    return fields.size() > 1 && fields[1] == md5sum;
}

bool hasBufferedLine(const std::string& list, const std::string& patchName, const std::string& md5sum) {
    for (std::size_t from = 0; from < list.size();) {
        const auto at = list.find(patchName, from);
        if (at >= list.size()) return false;
        const auto before = list.rfind('\n', at);
        const std::size_t start = before == std::string::npos || before < from ? from : before + 1;
        const std::size_t end = std::min(list.find('\n', start), list.size());
        if (bufferedLineMatches(list.substr(start, end - start), patchName, md5sum)) return true;
        from = end + 1;
    }
    return false;
}

bool BufferedList::isCurrent(const std::string& path) const {
    const base::FileStamp now = base::stampOf(path);
    return path == path_ && now == stamp_ && (settled_ || !now.exists);
}

void BufferedList::read(const std::string& path) {
    path_ = path;
    text_.clear();
    stamp_ = base::FileStamp();
    settled_ = false;
    const base::UniqueFd fd = base::openFile(path, O_RDONLY | O_NONBLOCK);
    struct stat info {};
    if (!fd || fstat(fd.get(), &info) != 0) return;
    stamp_ = base::stampOf(info);
    std::vector<char> chunk(std::size_t{1} << 16);
    for (;;) {
        const ssize_t count = ::read(fd.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        text_.append(chunk.data(), static_cast<std::size_t>(count));
    }
    settled_ = static_cast<off_t>(text_.size()) == stamp_.size && !base::changedRecently(stamp_);
}

std::string linesWithout(const std::string& list, const std::string& patchName, ListDamage& damage) {
    std::string kept;
    for (std::size_t start = 0; start < list.size();) {
        const auto end = list.find('\n', start);
        damage.tornEnd = end == std::string::npos;
        const std::string line = list.substr(start, end - start);
        const bool damaged = base::isDamagedLine(line);
        damage.damagedLines = damage.damagedLines || damaged;
        if (!damaged && !base::contains(line, patchName)) kept += line + '\n';
        start = damage.tornEnd ? list.size() : end + 1;
    }
    return kept;
}

}  // namespace zelor::remediation
