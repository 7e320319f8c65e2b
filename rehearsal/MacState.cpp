#include "rehearsal/MacState.h"

#include <algorithm>
#include <stdexcept>

namespace zelor::rehearsal {

namespace {

using Json = nlohmann::json;

Outcome outcomeFrom(const Json& json) {
    const auto outcome = outcomeNamed(json.get<std::string>());
    if (!outcome) throw std::invalid_argument("unknown outcome " + json.dump());
    return *outcome;
}

std::string scopeName(FaultScope scope) {
    switch (scope) {
        case FaultScope::package:
            return "package";
        case FaultScope::image:
            return "image";
        case FaultScope::tool:
            break;
    }
    return "tool";
}

FaultScope scopeFrom(const std::string& name) {
    for (const FaultScope scope : {FaultScope::tool, FaultScope::package, FaultScope::image}) {
        if (name == scopeName(scope)) return scope;
    }
    throw std::invalid_argument("unknown kind of fault \"" + name + "\"");
}

Json toJson(const Update& update) {
    return {{"label", update.label},
            {"title", update.title},
            {"version", update.version},
            {"sizeK", update.sizeK},
            {"recommended", update.recommended},
            {"restart", update.restart},
            {"osUpdate", update.osUpdate},
            {"outcome", nameOf(update.outcome)},
            {"payload", update.payload}};
}

Json toJson(const Mount& mount) {
    return {{"disk", mount.disk},
            {"image", mount.image},
            {"volume", mount.volume},
            {"mountPoint", mount.mountPoint},
            {"mounted", mount.mounted}};
}

Json toJson(const Fault& fault) {
    return {{"kind", scopeName(fault.scope)}, {"name", fault.name}, {"outcome", nameOf(fault.outcome)}};
}

Json toJson(const Receipt& receipt) {
    return {{"id", receipt.id},
            {"version", receipt.version},
            {"location", receipt.location},
            {"installed", receipt.installed}};
}

Json toJson(const Preference& preference) {
    return {{"type", preference.type}, {"text", preference.text}};
}

Json toJson(const Service& service) {
    return {{"loaded", service.loaded}, {"overridden", service.overridden}, {"disabled", service.disabled}};
}

Json toJson(const std::map<std::string, Preference>& domain) {
    Json json = Json::object();
    for (const auto& [key, value] : domain)
        json[key] = toJson(value);
    return json;
}

template <class Item>
Json mapToJson(const std::map<std::string, Item>& items) {
    Json json = Json::object();
    for (const auto& [name, item] : items)
        json[name] = toJson(item);
    return json;
}

template <class Item>
Json listToJson(const std::vector<Item>& items) {
    Json list = Json::array();
    for (const Item& item : items)
        list.push_back(toJson(item));
    return list;
}

Update updateFrom(const Json& json) {
    Update update;
    json.at("label").get_to(update.label);
    json.at("title").get_to(update.title);
    json.at("version").get_to(update.version);
    json.at("sizeK").get_to(update.sizeK);
    json.at("recommended").get_to(update.recommended);
    json.at("restart").get_to(update.restart);
    json.at("osUpdate").get_to(update.osUpdate);
    json.at("payload").get_to(update.payload);
    update.outcome = outcomeFrom(json.at("outcome"));
    return update;
}

Mount mountFrom(const Json& json) {
    Mount mount;
    json.at("disk").get_to(mount.disk);
    json.at("image").get_to(mount.image);
    json.at("volume").get_to(mount.volume);
    json.at("mountPoint").get_to(mount.mountPoint);
    json.at("mounted").get_to(mount.mounted);
    return mount;
}

Fault faultFrom(const Json& json) {
    return {scopeFrom(json.at("kind").get<std::string>()), json.at("name").get<std::string>(),
            outcomeFrom(json.at("outcome"))};
}

Receipt receiptFrom(const Json& json) {
    return {json.at("id").get<std::string>(), json.at("version").get<std::string>(),
            json.at("location").get<std::string>(), json.value("installed", std::int64_t{0})};
}

std::map<std::string, Preference> domainFrom(const Json& json) {
    std::map<std::string, Preference> domain;
    for (const auto& [key, value] : json.items())
        domain[key] = {value.at("type").get<std::string>(), value.at("text").get<std::string>()};
    return domain;
}

Service serviceFrom(const Json& json) {
    return {json.at("loaded").get<bool>(), json.at("overridden").get<bool>(),
            json.at("disabled").get<bool>()};
}

template <class Read>
auto listFrom(const Json& list, const Read& read) {
    std::vector<decltype(read(list))> items;
    for (const Json& item : list)
        items.push_back(read(item));
    return items;
}

Json proxiesToJson(const NetworkProxies& proxies) {
    return {{"host", proxies.host},
            {"port", proxies.port},
            {"exceptions", proxies.exceptions},
            {"script", proxies.script}};
}

NetworkProxies proxiesFrom(const Json& json) {
    return {json.value("host", ""), json.value("port", 0),
            json.value("exceptions", std::vector<std::string>()), json.value("script", "")};
}

}  // namespace

nlohmann::json toJson(const MacState& state) {
    return {
        {"productName", state.productName},       {"productVersion", state.productVersion},
        {"buildVersion", state.buildVersion},     {"root", state.root},
        {"updates", listToJson(state.updates)},   {"installedUpdates", listToJson(state.installedUpdates)},
        {"mounts", listToJson(state.mounts)},     {"faults", listToJson(state.faults)},
        {"receipts", listToJson(state.receipts)}, {"preferences", mapToJson(state.preferences)},
        {"services", mapToJson(state.services)},  {"accountPolicies", state.accountPolicies},
        {"proxies", proxiesToJson(state.proxies)}};
}

MacState stateFromJson(const nlohmann::json& json) {
    MacState state;
    json.at("productName").get_to(state.productName);
    json.at("productVersion").get_to(state.productVersion);
    json.at("buildVersion").get_to(state.buildVersion);
    json.at("root").get_to(state.root);
    state.updates = listFrom(json.at("updates"), updateFrom);
    state.installedUpdates = listFrom(json.at("installedUpdates"), updateFrom);
    state.mounts = listFrom(json.at("mounts"), mountFrom);
    state.faults = listFrom(json.at("faults"), faultFrom);
    state.receipts = listFrom(json.at("receipts"), receiptFrom);
    // An earlier version's state does not have these.
    const Json preferences = json.value("preferences", Json::object());
    const Json services = json.value("services", Json::object());
    for (const auto& [name, domain] : preferences.items())
        state.preferences[name] = domainFrom(domain);
    for (const auto& [label, service] : services.items())
        state.services[label] = serviceFrom(service);
    state.accountPolicies = json.value("accountPolicies", "");
    state.proxies = proxiesFrom(json.value("proxies", Json::object()));
    return state;
}

Outcome faultFor(const MacState& state, FaultScope scope, const std::string& name) {
    for (const Fault& fault : state.faults) {
        if (fault.scope == scope && fault.name == name) return fault.outcome;
    }
    return Outcome::ok;
}

void setFault(MacState& state, const Fault& fault) {
    auto& faults = state.faults;
    const auto same = [&](const Fault& other) {
        return other.scope == fault.scope && other.name == fault.name;
    };
    faults.erase(std::remove_if(faults.begin(), faults.end(), same), faults.end());
    if (fault.outcome != Outcome::ok) faults.push_back(fault);
}

void recordReceipt(MacState& state, const Receipt& receipt) {
    auto& receipts = state.receipts;
    const auto same = [&](const Receipt& other) { return other.id == receipt.id; };
    receipts.erase(std::remove_if(receipts.begin(), receipts.end(), same), receipts.end());
    receipts.push_back(receipt);
}

bool hasReceipt(const MacState& state, const std::string& id) {
    return std::any_of(state.receipts.begin(), state.receipts.end(),
                       [&](const Receipt& receipt) { return receipt.id == id; });
}

}  // namespace zelor::rehearsal
