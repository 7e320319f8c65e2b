#include "collaborators/Common.h"

std::string Common::StripTrailingSeparators(const std::string& path) {
    const auto last = path.find_last_not_of('/');
    return last == std::string::npos ? "" : path.substr(0, last + 1);
}
