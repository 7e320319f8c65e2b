#pragma once

#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <ctime>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>

#include "base/Directories.h"

namespace zelor::test {

/// A temporary directory below TMPDIR.
class TempDir {
  public:
    // Only the user may write to what tests make, whatever the caller's mask.
    TempDir() { umask(022); }

    const boost::filesystem::path& path() const { return path_; }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

  private:
    base::TemporaryDirectory directory_{"zelor-test"};
    boost::filesystem::path path_{directory_.path()};
};

/// Writes a whole file, making its directories.
inline void writeFile(const std::string& path, const std::string& text) {
    boost::filesystem::create_directories(boost::filesystem::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw std::runtime_error("cannot write " + path);
}

/// Writes other text of the same length with the same modification time: only reading the file shows it.
inline void replaceUnseen(const std::string& path, const std::string& text) {
    const std::time_t time = boost::filesystem::last_write_time(path);
    if (boost::filesystem::file_size(path) != text.size())
        throw std::runtime_error("another length: " + path);
    writeFile(path, text);
    boost::filesystem::last_write_time(path, time);
}

/// The whole file, "" when there is none.
inline std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace zelor::test
