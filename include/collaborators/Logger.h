#pragma once

#include <log4cpp/Category.hh>

#include "base/Export.h"

/// The agent's log. Every line of the library goes to the category that it returns.
class ZELOR_API Logger {
  public:
    /// The process-wide logger; never null, valid until the process ends. Any thread.
    static Logger* GetInstance();

    /// The category to log to; its appenders serialise the lines of several threads.
    log4cpp::Category& GetLogger();
};
