#include <unistd.h>

#include <set>

#include "Support.h"
#include "agent/trust/BundleManifest.h"

namespace {

namespace fs = boost::filesystem;
using zelor::fuzz::require;
using zelor::fuzz::takeUntil;

bool usable(const std::string& name) {
    for (const fs::path& part : fs::path(name)) {
        if (part == "." || part == ".." || part.size() > 200) return false;
    }
    return !name.empty() && name.front() != '/' && name.back() != '/' && name.size() < 2000;
}

/// Makes one entry of the bundle, if it can be made.
void make(const fs::path& bundle, const std::string& name, char kind, const std::string& content) {
    boost::system::error_code error;
    if (!usable(name) || fs::exists(fs::symlink_status(bundle / name, error))) return;
    for (fs::path above = fs::path(name).parent_path(); !above.empty(); above = above.parent_path()) {
        if (fs::is_symlink(bundle / above, error)) return;
    }
    fs::create_directories((bundle / name).parent_path(), error);
    if (error) return;
    if (kind == 'd') {
        fs::create_directory(bundle / name, error);
    } else if (kind == 'l') {
        (void)!symlink(content.c_str(), (bundle / name).c_str());
    } else {
        std::ofstream((bundle / name).string(), std::ios::binary) << content;
    }
}

std::string unescaped(const std::string& name) {
    std::string out;
    for (std::size_t i = 0; i < name.size(); ++i) {
        if (name[i] != '\\') {
            out += name[i];
            continue;
        }
        require(name.substr(i, 2) == "\\x" && i + 3 < name.size(), "an escape has two digits");
        out += static_cast<char>(std::stoi(name.substr(i + 2, 2), nullptr, 16));
        i += 3;
    }
    return out;
}

/// A line must describe its entry.
std::string judge(const std::string& line, const fs::path& bundle) {
    const auto blank = line.rfind(' ');
    require(blank != std::string::npos, "a line has fields");
    for (const char c : line)
        require(c >= 0x20 && c < 0x7f, "a line is printable");
    std::string name = unescaped(line.substr(blank + 1));
    const fs::file_type type = fs::symlink_status(name == "." ? bundle : bundle / name).type();
    const std::string kind = line.substr(0, line.find(' '));
    require(kind == (type == fs::directory_file ? "folder"
                     : type == fs::symlink_file ? "link"
                                                : "file"),
            "a line gives the kind of an entry that is there");
    if (type == fs::symlink_file) {
        require(unescaped(line.substr(5, blank - 5)) == fs::read_symlink(bundle / name).string(),
                "a line gives a link's target");
    }
    return name;
}

}  // namespace

// Entries, each "KIND NAME NUL CONTENT NUL", become a bundle; its manifest must list each correctly and once.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const zelor::test::TempDir kPlace;
    const fs::path bundle = kPlace.path() / "b.app";
    fs::create_directory(bundle);
    const std::string zero(1, '\0');
    std::string text = zelor::fuzz::textOf(data, size);
    for (int entries = 0; !text.empty() && entries < 20; ++entries) {
        const std::string name = takeUntil(text, zero);
        const std::string content = takeUntil(text, zero);
        make(bundle, name.substr(std::min<std::size_t>(name.size(), 1)), name.empty() ? 'f' : name[0],
             content);
    }
    std::size_t expected = 1;
    for (fs::recursive_directory_iterator it(bundle), end; it != end; ++it)
        ++expected;
    std::string manifest = zelor::agent::bundleManifest(bundle.string());
    require(takeUntil(manifest, "\n") == ") zelor-bundle-manifest 2", "the first line gives the version");
    std::set<std::string> seen;
    while (!manifest.empty())
        seen.insert(judge(takeUntil(manifest, "\n"), bundle));
    require(seen.size() == expected, "every entry has its line");
    fs::remove_all(bundle);
    return 0;
}
