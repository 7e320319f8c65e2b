#pragma once

#include <string>
#include <vector>

#include "controller/verify/Proof.h"

namespace zelor::controller {

/// What is proven of one request.
struct VerifiedRequest {
    std::string key;
    std::string identifier;
    Compliance compliance = Compliance::unknown;
    Proof proof;
    bool checked = false;               ///< there is something that could prove it
    std::vector<BlockProof> blocks;     ///< in the order of the content
    std::vector<std::string> recorded;  ///< the ERI ids of its content that the record has
};

}  // namespace zelor::controller
