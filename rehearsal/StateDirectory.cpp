#include "rehearsal/StateDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "base/Directories.h"
#include "base/Files.h"
#include "base/StagedFile.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

class Lock {
  public:
    explicit Lock(const std::string& directory)
        : file_(base::openFile(directory + "/lock", O_RDWR | O_CREAT, 0600)) {
        if (!file_) throw std::runtime_error("cannot open " + directory + "/lock: " + base::errorText(errno));
        while (::flock(file_.get(), LOCK_EX) != 0) {
            if (errno != EINTR)
                throw std::runtime_error("cannot lock " + directory + ": " + base::errorText(errno));
        }
    }

  private:
    base::UniqueFd file_;
};

}  // namespace

StateDirectory::StateDirectory(const std::string& toolsDirectory) : path_(toolsDirectory + "/state") {}

bool StateDirectory::exists() const {
    return fs::exists(file());
}

void StateDirectory::create(const MacState& state) const {
    if (!base::makeDirectories(path_))
        throw std::runtime_error("cannot make " + path_ + ": " + base::errorText(errno));
    const Lock lock(path_);
    if (exists()) throw std::runtime_error(path_ + " contains a rehearsal Mac already; \"reset\" empties it");
    write(state);
}

MacState StateDirectory::load() const {
    if (!exists()) {
        throw std::runtime_error("no rehearsal Mac at " + path_ + "; \"zelor-rehearsal init\" makes one");
    }
    const Lock lock(path_);
    return read();
}

void StateDirectory::update(const std::function<void(MacState&)>& change) const {
    if (!exists()) {
        throw std::runtime_error("no rehearsal Mac at " + path_ + "; \"zelor-rehearsal init\" makes one");
    }
    const Lock lock(path_);
    MacState state = read();
    change(state);
    write(state);
}

MacState StateDirectory::read() const {
    std::ifstream in(file(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    try {
        return stateFromJson(nlohmann::json::parse(text));
    } catch (const std::exception& e) {
        throw std::runtime_error(file() + " is damaged (" + e.what() + "); remove it and use \"init\"");
    }
}

void StateDirectory::write(const MacState& state) const {
    const std::string text = toJson(state).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    base::StagedFile out(file(), ".new", 0644);
    out.write(text + '\n');
    out.commitUnflushed();
}

}  // namespace zelor::rehearsal
