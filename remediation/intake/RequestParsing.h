#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

/// Decisions on the text of a request's key.
namespace zelor::remediation {

/// The key under which progress is stored: "X||Y" is stored under X when Y contains "oval:", else as it is.
/// Refers to the request's key, which must outlive it.
class ProgressKey {
  public:
    /// Of that request key.
    explicit ProgressKey(const std::string& requestKey);
    ProgressKey(const ProgressKey&) = delete;
    ProgressKey& operator=(const ProgressKey&) = delete;
    /// As long as this object.
    const std::string& text() const { return *text_; }

  private:
    std::string cpe_;  ///< where that is the key
    const std::string* text_;
};

/// What the trimmed key of a request names.
struct RequestKey {
    std::vector<std::string> cpes;  ///< empty when the key names none
    std::string packageName;        ///< empty for a configuration, or without "||"
};

/// True when the trimmed identifier asks for a configuration, false when it asks for a patch.
bool isConfiguration(std::string_view identifier);

/// Whether the text is a CCE identifier: CCE-, up to seven digits, a hyphen and a digit.
bool isCceIdentifier(const std::string& text);
/// Whether the text is a CVE identifier: CVE-, four digits, a hyphen and four to nineteen digits.
bool isCveIdentifier(const std::string& text);

/// How many CPEs a request names: one or two are usable.
enum class CpeCount { none, usable, tooMany };
CpeCount cpeCount(const RequestKey& request);
/// Why a request with that many cannot be used; "" when it can.
std::string whyUnusable(CpeCount count);

/// Parses a trimmed key: up to two parts separated by "||", CPEs separated by commas and, unless
/// `configuration`, a package name. Every text is accepted.
RequestKey parseRequestKey(std::string_view trimmedKey, bool configuration);

/// True when some word of a reference names neither a CVE nor a CCE.
bool containsPatchId(const std::string& reference);

/// The platform and product that the CPEs of a request name.
struct RequestTarget {
    std::string platformCpe;
    std::string productCpe;
};

/// The platform and product of a request; of several CPEs of one kind the last counts. `specialCases`:
/// operating-system CPEs that count as products.
RequestTarget requestTarget(std::vector<std::string> cpes, const std::string& defaultPlatformCpe,
                            const std::set<std::string>& specialCases);

}  // namespace zelor::remediation
