#include <pugixml.hpp>

#include "base/Files.h"
#include "rehearsal/SettingsTools.h"

namespace zelor::rehearsal {

namespace {

constexpr std::size_t kPolicyBytes = 1U << 20U;

ToolText set(MacState& state, const std::string& file) {
    const std::string begin = "Setting global account policies\n";
    try {
        const std::string text = base::readBounded(file, kPolicyBytes, base::Links::follow);
        pugi::xml_document document;
        if (!document.load_buffer(text.data(), text.size()) || !document.child("plist").child("dict"))
            return {begin, "Error: " + file + " is not a property list\n", 1};
        state.accountPolicies = text;
        return {begin, "", 0};
    } catch (const std::exception&) {
        return {begin, "Error: could not read " + file + "\n", 1};
    }
}

}  // namespace

ToolText tellPwpolicy(MacState& state, const Arguments& arguments) {
    // The dash before a command may be left out.
    std::string command = arguments.empty() ? "" : arguments[0];
    if (!command.empty() && command[0] == '-') command.erase(0, 1);
    if (command == "getaccountpolicies" && arguments.size() == 1)
        return {"Getting global account policies\n" + state.accountPolicies + '\n', "", 0};
    if (command == "setaccountpolicies" && arguments.size() == 2) return set(state, arguments[1]);
    if (command == "clearaccountpolicies" && arguments.size() == 1) {
        state.accountPolicies.clear();
        return {"Clearing global account policies\n", "", 0};
    }
    return {"", "usage: pwpolicy [-h]\n", 1};
}

}  // namespace zelor::rehearsal
