#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "agent/content/ContentCheck.h"
#include "agent/trust/Sha256.h"
#include "controller/Setup.h"
#include "controller/status/Status.h"
#include "controller/verify/VerifiedRequest.h"
#include "remediation/apply/InstalledRecord.h"
#include "remediation/creEriParsedData.h"

/// Proving that what requests ask for has taken effect, without changing anything.
namespace zelor::controller {

/// Keeps what `Verifier` needs of the content that a run asks for from now on, for the process.
void keepContentToVerify();

/// What a check script and its archive must be.
struct ScriptDigests {
    agent::FileDigest archive, file;
};

/// Runs the checks of content, each once. One thread; its functions block on tools and on the network.
class Verifier {
  public:
    /// `stop`: whether to end early; requests from then on are unknown. `paths` outlive the object.
    Verifier(const Paths& paths, SystemIdentity system, std::function<bool()> stop);

    /// Asks for the content, and proves what the request asks for. `invalid`: why no run can use it, or "".
    VerifiedRequest verify(const std::string& key, const std::string& identifier, const std::string& invalid);
    /// The same for a request of a run that has just ended, by the content that the run asked for.
    VerifiedRequest verifyAfterRun(const std::string& key, const std::string& identifier);

  private:
    /// What content is for.
    struct Wanted {
        std::string identifier, platform, product, packageName;
    };
    Wanted wantedBy(const std::string& key, const std::string& identifier) const;
    void prove(VerifiedRequest& request, const Wanted& wanted, const creEriParsedData& entry,
               const std::vector<agent::ContentCheck>& checks);
    Proof proofOfUpdates(const std::string& packageName);
    Proof proofOf(const agent::ContentCheck& check);
    Proof runScript(const std::string& script, const ScriptDigests& digests) const;
    void fetchScript(const std::string& script, const ScriptDigests& digests,
                     const std::string& directory) const;
    Proof lookAtBundle(const agent::ContentCheck& check) const;

    const Paths& paths_;
    SystemIdentity system_;
    std::function<bool()> stop_;
    remediation::InstalledRecord record_;
    std::map<std::vector<std::string>, Proof> known_;  ///< by kind, name, version and digests
    std::optional<base::CommandResult> listing_;
};

}  // namespace zelor::controller
