#include "authoring/import/YamlTree.h"

#include <yaml-cpp/eventhandler.h>
#include <yaml-cpp/exceptions.h>
#include <yaml-cpp/parser.h>

#include <algorithm>
#include <sstream>

#include "authoring/import/SourceText.h"
#include "base/Strings.h"

namespace zelor::authoring {

namespace {

constexpr std::size_t kYamlDepthLimit = 32;
constexpr std::size_t kMembersLimit = 1000;  // each new name is compared with the others

bool has(const YamlNode& map, const std::string& name) {
    return std::any_of(map.members.begin(), map.members.end(),
                       [&](const auto& member) { return member.first == name; });
}

/// Builds the tree while the file is read, so that nothing larger than the file ever exists.
class TreeBuilder : public YAML::EventHandler {
  public:
    void OnDocumentStart(const YAML::Mark& /*mark*/) override {}
    void OnDocumentEnd() override {}
    void OnNull(const YAML::Mark& mark, YAML::anchor_t anchor) override { add(mark, "", anchor, {}); }
    void OnAlias(const YAML::Mark& mark, YAML::anchor_t /*anchor*/) override {
        fail(mark, "an alias; write its value out");
    }
    void OnScalar(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                  const std::string& value) override {
        YamlNode node;
        // A plain ~ or null has the tag "?", quoted text has "!".
        const bool null = tag == "?" && (value.empty() || value == "~" || value == "null");
        node.kind = null ? YamlNode::Kind::null : YamlNode::Kind::scalar;
        if (!null) node.text = value;
        add(mark, tag, anchor, std::move(node));
    }
    void OnSequenceStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                         YAML::EmitterStyle::value /*style*/) override {
        begin(mark, tag, anchor, YamlNode::Kind::list);
    }
    void OnSequenceEnd() override { end(); }
    void OnMapStart(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor,
                    YAML::EmitterStyle::value /*style*/) override {
        begin(mark, tag, anchor, YamlNode::Kind::map);
    }
    void OnMapEnd() override { end(); }

    YamlNode take() { return std::move(root_); }

  private:
    struct Open {
        YamlNode node;
        YAML::Mark mark;
        std::string name;
        bool named = false;
    };

    [[noreturn]] static void fail(const YAML::Mark& mark, const std::string& what) {
        throw YAML::ParserException(mark, what);
    }

    static void refuse(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor) {
        if (anchor != YAML::NullAnchor) fail(mark, "an anchor; write values out where they are used");
        if (!tag.empty() && tag != "?" && tag != "!") fail(mark, "a custom tag; remove it");
    }

    void begin(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor, YamlNode::Kind kind) {
        refuse(mark, tag, anchor);
        if (open_.size() == kYamlDepthLimit) fail(mark, "more than 32 levels");
        open_.push_back({{}, mark, "", false});
        open_.back().node.kind = kind;
    }

    void end() {
        Open done = std::move(open_.back());
        open_.pop_back();
        place(done.mark, std::move(done.node));
    }

    void add(const YAML::Mark& mark, const std::string& tag, YAML::anchor_t anchor, YamlNode node) {
        refuse(mark, tag, anchor);
        place(mark, std::move(node));
    }

    void place(const YAML::Mark& mark, YamlNode node) {
        if (open_.empty()) {
            root_ = std::move(node);
            return;
        }
        Open& parent = open_.back();
        if (parent.node.kind == YamlNode::Kind::list) {
            parent.node.items.push_back(std::move(node));
        } else if (parent.named) {
            parent.node.members.emplace_back(parent.name, std::move(node));
            parent.named = false;
        } else {
            if (node.kind != YamlNode::Kind::scalar) fail(mark, "a name that is no text");
            if (has(parent.node, node.text)) fail(mark, "\"" + node.text + "\" a second time");
            if (parent.node.members.size() == kMembersLimit) fail(mark, "more than 1,000 names in one map");
            parent.name = node.text;
            parent.named = true;
        }
    }

    YamlNode root_;
    std::vector<Open> open_;
};

}  // namespace

const YamlNode& YamlNode::operator[](const std::string& name) const {
    static const YamlNode kNothing;
    const auto named = [&](const auto& member) { return member.first == name; };
    const auto found = std::find_if(members.begin(), members.end(), named);
    return found == members.end() ? kNothing : found->second;
}

base::Result<YamlNode> parseYaml(const std::string& text) {
    if (text.size() > kYamlBytesLimit) return base::failure("it is larger than 1 MiB");
    if (const std::string why = whyUnfitText(text); !why.empty()) return base::failure("it has " + why);
    std::istringstream stream(text);
    TreeBuilder builder;
    try {
        YAML::Parser parser(stream);
        if (!parser.HandleNextDocument(builder)) return base::failure("it is empty");
        TreeBuilder second;
        if (parser.HandleNextDocument(second)) return base::failure("it has a second document");
    } catch (const YAML::Exception& e) {
        return base::failure("line " + std::to_string(e.mark.line + 1) + ": " + e.msg);
    }
    return builder.take();
}

}  // namespace zelor::authoring
