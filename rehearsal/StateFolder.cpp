#include "rehearsal/StateFolder.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "agent/Files.h"
#include "base/Files.h"

namespace fs = boost::filesystem;

namespace zelor::rehearsal {

namespace {

class Lock {
  public:
    explicit Lock(const std::string& folder)
        : file_(base::openFile(folder + "/lock", O_RDWR | O_CREAT, 0600)) {
        if (!file_) throw std::runtime_error("cannot open " + folder + "/lock: " + agent::errorText(errno));
        while (::flock(file_.get(), LOCK_EX) != 0) {
            if (errno != EINTR)
                throw std::runtime_error("cannot lock " + folder + ": " + agent::errorText(errno));
        }
    }

  private:
    base::UniqueFd file_;
};

}  // namespace

StateFolder::StateFolder(const std::string& toolsFolder) : path_(toolsFolder + "/state") {}

bool StateFolder::exists() const {
    return fs::exists(file());
}

void StateFolder::create(const MacState& state) const {
    if (!agent::makeFolders(path_))
        throw std::runtime_error("cannot make " + path_ + ": " + agent::errorText(errno));
    const Lock lock(path_);
    if (exists()) throw std::runtime_error(path_ + " holds a rehearsal Mac already; \"reset\" empties it");
    write(state);
}

MacState StateFolder::load() const {
    if (!exists()) {
        throw std::runtime_error("no rehearsal Mac at " + path_ + "; \"zelor-rehearsal init\" makes one");
    }
    const Lock lock(path_);
    return read();
}

void StateFolder::update(const std::function<void(MacState&)>& change) const {
    if (!exists()) {
        throw std::runtime_error("no rehearsal Mac at " + path_ + "; \"zelor-rehearsal init\" makes one");
    }
    const Lock lock(path_);
    MacState state = read();
    change(state);
    write(state);
}

MacState StateFolder::read() const {
    std::ifstream in(file(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    try {
        return stateFromJson(nlohmann::json::parse(text));
    } catch (const std::exception& e) {
        throw std::runtime_error(file() + " is damaged (" + e.what() + "); remove it and use \"init\"");
    }
}

void StateFolder::write(const MacState& state) const {
    const std::string staged = file() + ".new";
    const std::string text = toJson(state).dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
    base::UniqueFd out = base::openFile(staged, O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (!out || !base::writeAll(out.get(), text + "\n") || ::rename(staged.c_str(), file().c_str()) != 0) {
        throw std::runtime_error("cannot write " + file() + ": " + agent::errorText(errno));
    }
}

WorkFolder::WorkFolder(const std::string& parent) : path_(parent + "/work-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error("cannot make a folder in " + parent + ": " + agent::errorText(errno));
    }
}

WorkFolder::~WorkFolder() {
    removeTree(path_);
}

bool removeTree(const std::string& path) {
    boost::system::error_code error;
    if (fs::symlink_status(path, error).type() == fs::directory_file) {
        ::chmod(path.c_str(), 0700);
        for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error)) {
            removeTree(it->path().string());
        }
    }
    fs::remove(path, error);
    return !error;
}

}  // namespace zelor::rehearsal
