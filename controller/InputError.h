#pragma once

#include <stdexcept>
#include <string>

#include "controller/States.h"

namespace zelor::controller {

/// Ends a command with that exit status. The text names the problem and its remedy.
class CommandError : public std::runtime_error {
  public:
    /// `status`: a member of `exitStatus`; `text`: the message.
    CommandError(int status, const std::string& text) : std::runtime_error(text), status_(status) {}
    int status() const { return status_; }

  private:
    int status_;
};

/// Arguments, requests or a configuration cannot be used: nothing was changed.
class InputError : public CommandError {
  public:
    /// `text` names the problem and its remedy.
    explicit InputError(const std::string& text) : CommandError(exitStatus::kUnusable, text) {}
};

}  // namespace zelor::controller
