#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "remediation/creEriParsedData.h"
#include "remediation/parseOnlyMetadata.h"
#include "remediation/parsedEriData.h"
#include "remediation/remediateMetadata.h"

/// The records' fields by reference: for the content library, which fills them, and for the run, which reads
/// them without the copies that the getters make. A reference lives as long as its record.
struct RecordAccess {
    // clang-format off
    /// The fields of an ERI block, for writing.
    static std::string& eriId(parsedEriData& eri) { return eri.eriId; }
    static std::string& productCpe(parsedEriData& eri) { return eri.productCpe; }
    static std::string& operationImpact(parsedEriData& eri) { return eri.operationImpact; }
    static std::string& instructions(parsedEriData& eri) { return eri.instructions; }
    static std::string& patchId(parsedEriData& eri) { return eri.patchId; }
    static std::string& mskbId(parsedEriData& eri) { return eri.mskbId; }
    static std::string& patchSize(parsedEriData& eri) { return eri.patchSize; }
    static std::string& silentModeCmd(parsedEriData& eri) { return eri.silentModeCmd; }
    static std::string& md5sum(parsedEriData& eri) { return eri.md5sum; }
    static bool& reboot(parsedEriData& eri) { return eri.reboot; }

    /// The same, for reading.
    static const std::string& productCpe(const parsedEriData& eri) { return eri.productCpe; }
    static const std::string& operationImpact(const parsedEriData& eri) { return eri.operationImpact; }
    static const std::string& instructions(const parsedEriData& eri) { return eri.instructions; }
    static const std::string& patchId(const parsedEriData& eri) { return eri.patchId; }
    static const std::string& mskbId(const parsedEriData& eri) { return eri.mskbId; }
    static const std::string& silentModeCmd(const parsedEriData& eri) { return eri.silentModeCmd; }
    static bool reboot(const parsedEriData& eri) { return eri.reboot; }

    /// The fields of an entry.
    static std::string& cve(creEriParsedData& cre) { return cre.cve; }
    static std::string& cce(creEriParsedData& cre) { return cre.cce; }
    static std::string& creId(creEriParsedData& cre) { return cre.creId; }
    static std::vector<std::string>& eriIds(creEriParsedData& cre) { return cre.eriIds; }
    static const std::vector<std::string>& eriIds(const creEriParsedData& cre) { return cre.eriIds; }
    static std::vector<parsedEriData>& blocks(creEriParsedData& cre) { return cre.parsedEriDataBlocks; }
    static const std::vector<parsedEriData>& blocks(const creEriParsedData& cre) { return cre.parsedEriDataBlocks; }

    /// The fields of the content cache's answer.
    static bool& parsingFailed(parseOnlyMetadata& metadata) { return metadata.parsingFailed; }
    static creEriParsedData& creEriData(parseOnlyMetadata& metadata) { return metadata.creEriData; }

    /// The fields of a request's row.
    static const std::string& combinedCpes(const remediateMetadata& row) { return row.combinedCpes; }
    static const std::string& cveOrCceId(const remediateMetadata& row) { return row.cveOrCceId; }
    static const std::string& platformCpe(const remediateMetadata& row) { return row.platformCpe; }
    static const std::string& productCpe(const remediateMetadata& row) { return row.productCpe; }
    static bool creEriDataPresent(const remediateMetadata& row) { return row.creEriDataPresent; }
    static bool osRemediation(const remediateMetadata& row) { return row.osRemediation; }
    static creEriParsedData& creEriData(remediateMetadata& row) { return row.creEriData; }
    static const creEriParsedData& creEriData(const remediateMetadata& row) { return row.creEriData; }
    // clang-format on
};
