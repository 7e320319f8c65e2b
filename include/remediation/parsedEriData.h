#pragma once

#include <string>

#include "base/Export.h"

/// One parsed ERI block: one installable patch or one configuration action for one product.
/// The content library fills it (through RecordAccess); field order and types are shared with that library.
class ZELOR_API parsedEriData {
  public:
    parsedEriData();
    parsedEriData(const parsedEriData& other);
    parsedEriData(parsedEriData&& other) noexcept;
    parsedEriData& operator=(const parsedEriData& other);
    parsedEriData& operator=(parsedEriData&& other) noexcept;
    ~parsedEriData();

    /// The block's texts as in the content; "" where it has none.
    std::string getEriId();
    std::string getProductCpe();
    std::string getOperationImpact();
    /// The action text; an OS update begins with "os remediation" in any letter case.
    std::string getInstructions();
    /// File name of the patch or script, with its extension.
    std::string getPatchId();
    /// Vendor knowledge-base number; a block that has one belongs to another platform.
    std::string getMskbId();
    /// Size with its unit, for example "12.5 MB".
    std::string getPatchSize();
    /// Path inside a bundle, with arguments, of its unattended installer.
    std::string getSilentModeCmd();
    /// MD5 of the patch file, in hexadecimal as in the content; "" when it has none.
    std::string getMd5sum();
    /// True when the content says that the patch needs a restart.
    bool getReboot();

  private:
    friend struct RecordAccess;

    std::string eriId;
    std::string eriText1;
    std::string productCpe;
    std::string eriText2;
    std::string operationImpact;
    std::string instructions;
    std::string patchId;
    std::string mskbId;
    std::string patchSize;
    std::string silentModeCmd;
    std::string md5sum;
    bool reboot = false;
};
