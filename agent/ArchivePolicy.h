#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What an archive may ask for: decisions alone, nothing here touches a file.
namespace zelor {

struct ExtractionLimits {
    std::uint64_t entries = 100000;
    std::uint64_t unpackedBytes = 64ULL << 30U;
    std::uint64_t freeMargin = 64ULL << 20U;  ///< bytes of the file system that stay free
    std::uint64_t ratio = 200;  ///< unpacked bytes for each byte of the archive, beyond the allowance
    std::uint64_t ratioAllowance = 64ULL << 20U;
    std::size_t nameLength = 4096;
};

/// The components of an entry's name or a link's target; empty ones and "." are left out.
std::vector<std::string> pathComponents(const std::string& path);

/// Why an entry of this name cannot be created below the destination, "" when it can.
std::string entryNameProblem(const std::string& name, const ExtractionLimits& limits);

/// Why a symbolic link at `linkPath` (components below the destination) must not hold `target`, "" when it
/// may. A target may climb only at its start: ".." after a name could start from wherever a link of that name
/// leads.
std::string linkTargetProblem(const std::vector<std::string>& linkPath, const std::string& target,
                              const ExtractionLimits& limits);

/// What is kept of an entry's mode: set-user-id, set-group-id and sticky bits are dropped.
inline constexpr unsigned keptModeBits = 0777;

/// How many bytes an archive may unpack to, and the rule that sets the bound.
struct Allowance {
    std::uint64_t bytes = 0;
    std::string rule;
};
Allowance unpackedAllowance(std::uint64_t archiveBytes, std::uint64_t freeBytes,
                            const ExtractionLimits& limits);

}  // namespace zelor
