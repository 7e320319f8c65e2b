#pragma once

#include <stdexcept>
#include <string>

#include "controller/States.h"

namespace zelor::controller {

/// Ends a command with an exit status of its own. The text names the thing and the remedy.
class CommandError : public std::runtime_error {
  public:
    CommandError(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
    int status() const { return status_; }

  private:
    int status_;
};

/// Arguments, requests or a configuration that cannot be used: nothing was changed.
class InputError : public CommandError {
  public:
    explicit InputError(const std::string& text) : CommandError(exitStatus::kUnusable, text) {}
};

}  // namespace zelor::controller
