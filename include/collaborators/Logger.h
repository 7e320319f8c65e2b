#pragma once

#include <log4cpp/Category.hh>

#include "base/Export.h"

/// The agent's log. Every line of the library goes to the one category it hands out.
class ZELOR_API Logger {
  public:
    /// The process-wide logger; never null, valid until the process ends. Any thread.
    static Logger* GetInstance();

    /// The category to write on; its appenders serialise lines of several threads.
    log4cpp::Category& GetLogger();
};
