#pragma once

#include <string>

#include "base/Export.h"

/// The agent's settings. Every getter returns the configured text or its default; none throws.
class ZELOR_API ConfigurationManager {
  public:
    /// The settings read from `configFile`; "" names the agent's own ini file. Never null, valid until the
    /// process ends. Any thread.
    static ConfigurationManager* GetInstance(std::string configFile);

    /// Directory that holds the buffered-patches list.
    std::string getUnzipFileFolder();
    /// Directory that holds the buffered archives.
    std::string getBufferPatchesDir();
    /// Size limit of the buffer directory: a decimal number of megabytes.
    std::string getBufferPatchesDirSize();
    /// Share of the measured bandwidth that buffering may use: a decimal number of percent.
    std::string getBufferSpeedPercent();
    /// "interactive" (any case) leaves OS updates to the user; anything else installs them unattended.
    std::string getVendorProductInstallationType();
    /// How third-party products are installed, for example "quiet".
    std::string getThirdPartyProductInstallationType();

  private:
    std::string configFile_;
};
