#pragma once

#include <functional>
#include <string>

#include "rehearsal/MacState.h"

namespace zelor::rehearsal {

/// The directory that holds a tools directory's state.json. Tools of one Mac may run at the same time: every
/// read and every change is made under a lock, and the file is replaced as a whole. Operations throw
/// std::runtime_error that names the file.
class StateDirectory {
  public:
    /// `toolsDirectory`: the directory of the tools' names; the state is in its directory "state".
    explicit StateDirectory(const std::string& toolsDirectory);

    /// The directory "state"; whether it holds a state.
    const std::string& path() const { return path_; }
    bool exists() const;

    /// Makes the directory and writes the first state. Throws when there is one already.
    void create(const MacState& state) const;
    /// The state now.
    MacState load() const;
    /// Reads, changes and writes under one lock; an exception from `change` writes nothing.
    void update(const std::function<void(MacState&)>& change) const;

  private:
    MacState read() const;
    void write(const MacState& state) const;
    std::string file() const { return path_ + "/state.json"; }

    std::string path_;
};

}  // namespace zelor::rehearsal
