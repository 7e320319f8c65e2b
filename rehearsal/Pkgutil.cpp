#include <algorithm>

#include "rehearsal/SettingsTools.h"

namespace zelor::rehearsal {

namespace {

ToolText noReceipt(const std::string& id) {
    return {"", "No receipt for '" + id + "' found at '/'.\n", 1};
}

ToolText packages(const MacState& state) {
    std::vector<std::string> ids;
    for (const Receipt& receipt : state.receipts)
        ids.push_back(receipt.id);
    std::sort(ids.begin(), ids.end());
    ToolText text;
    for (const std::string& id : ids)
        text.out += id + '\n';
    return text;
}

/// Paths below the volume have no slash before them.
std::string relative(const std::string& location) {
    return location.empty() || location.front() != '/' ? location : location.substr(1);
}

}  // namespace

ToolText tellPkgutil(MacState& state, const Arguments& arguments) {
    const std::string command = arguments.empty() ? "" : arguments[0];
    if (command == "--pkgs" && arguments.size() == 1) return packages(state);
    if ((command != "--pkg-info" && command != "--forget") || arguments.size() != 2)
        return {"", "Usage: pkgutil [OPTIONS] [COMMANDS] ...\n", 1};
    const std::string& id = arguments[1];
    const auto receipt = std::find_if(state.receipts.begin(), state.receipts.end(),
                                      [&](const Receipt& one) { return one.id == id; });
    if (receipt == state.receipts.end()) return noReceipt(id);
    if (command == "--forget") {
        state.receipts.erase(receipt);
        return {"Forgot package '" + id + "' on '/'.\n", "", 0};
    }
    return {"package-id: " + id + "\nversion: " + receipt->version + "\nvolume: /\nlocation: " +
                relative(receipt->location) + "\ninstall-time: " + std::to_string(receipt->installed) + '\n',
            "", 0};
}

}  // namespace zelor::rehearsal
