#include "tests/faults/DiskModel.h"

#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <random>
#include <sstream>

#include "tests/support/TempDir.h"

namespace zelor::test {

namespace fs = boost::filesystem;

namespace {

constexpr std::size_t kSector = 512;

/// The last value that was made by operation `at` or before; nullptr for none.
template <class Versions>
auto valueAt(const Versions& versions, std::size_t at) -> decltype(&versions.front().second) {
    const auto behind =
        std::upper_bound(versions.begin(), versions.end(), at,
                         [](std::size_t wanted, const auto& one) { return wanted < one.first; });
    return behind == versions.begin() ? nullptr : &std::prev(behind)->second;
}

std::size_t lastUpTo(const std::vector<std::size_t>& all, std::size_t at) {
    const auto behind = std::upper_bound(all.begin(), all.end(), at);
    return behind == all.begin() ? 0 : *std::prev(behind);
}

DiskEntry entryOf(const fs::path& path) {
    struct stat info {};
    ::lstat(path.c_str(), &info);
    DiskEntry entry;
    entry.mode = info.st_mode & 07777U;
    std::string text;
    if (S_ISDIR(info.st_mode)) {
        entry.kind = 'd';
    } else if (S_ISLNK(info.st_mode)) {
        entry.kind = 'l';
        text = fs::read_symlink(path).string();
    } else {
        text = readFile(path.string());
    }
    entry.text = std::make_shared<const std::string>(std::move(text));
    return entry;
}

}  // namespace

std::string textIn(const DiskTree& tree, const std::string& path) {
    const auto found = tree.find(path);
    return found == tree.end() ? "" : *found->second.text;
}

std::size_t hashOf(const DiskTree& tree) {
    std::size_t hash = 0;
    constexpr std::size_t kLarge = 1U << 16U;
    for (const auto& [path, entry] : tree) {
        hash = hash * 31 + std::hash<std::string>()(path + entry.kind);
        hash = hash * 31 + (entry.text->size() > kLarge ? std::hash<const void*>()(entry.text.get())
                                                        : std::hash<std::string>()(*entry.text));
    }
    return hash;
}

void writeTree(const DiskTree& tree, const std::string& root, const std::vector<std::string>& tops) {
    for (const std::string& top : tops)
        fs::remove_all(root + "/" + top);
    for (const auto& [path, entry] : tree) {
        const std::string full = root + "/" + path;
        if (entry.kind == 'l') {
            fs::create_symlink(*entry.text, full);
            continue;
        }
        if (entry.kind == 'd') {
            fs::create_directories(full);
        } else {
            writeFile(full, *entry.text);
        }
        ::chmod(full.c_str(), entry.mode);
    }
}

DiskTree readTree(const std::string& root, const std::vector<std::string>& tops) {
    DiskTree tree;
    for (const std::string& top : tops) {
        if (!fs::exists(root + "/" + top)) continue;
        tree[top] = entryOf(root + "/" + top);
        for (fs::recursive_directory_iterator it(root + "/" + top), end; it != end; ++it)
            tree[it->path().string().substr(root.size() + 1)] = entryOf(it->path());
    }
    return tree;
}

DiskModel::DiskModel(const std::string& root, const std::vector<std::string>& tops) {
    std::map<std::string, int> ids;
    for (const auto& [path, entry] : readTree(root, tops)) {
        const auto id = static_cast<int>(inodes_.size());
        struct stat info {};
        ::lstat((root + "/" + path).c_str(), &info);
        byNumber_[info.st_ino] = ids[path] = id;
        Inode inode;
        inode.kind = entry.kind;
        inode.mode = entry.mode;
        inode.texts = {{0, entry.text}};
        inode.names = {{0, {}}};
        inodes_.push_back(inode);
        const auto slash = path.rfind('/');
        if (slash == std::string::npos) {
            tops_[path] = id;
        } else {
            inodes_[static_cast<std::size_t>(ids[path.substr(0, slash)])]
                .names[0]
                .second[path.substr(slash + 1)] = id;
        }
    }
}

bool DiskModel::replay(const std::string& log) {
    for (std::size_t at = 0; at < log.size();) {
        const auto end = log.find('\n', at);
        if (end == std::string::npos) return false;
        std::istringstream line(log.substr(at, end - at));
        std::string kind, rest;
        unsigned long one = 0, other = 0, more = 0;
        if (!(line >> kind >> one >> other >> more) || line.get() != ' ' || !std::getline(line, rest))
            return false;
        at = end + 1;
        ++count_;
        if (kind != "write") {
            apply(kind, one, other, more, rest);
            continue;
        }
        if (log.size() - at <= more) return false;
        write(one, other, log.substr(at, more));
        at += more + 1;
    }
    return true;
}

int DiskModel::find(unsigned long inode) const {
    const auto found = byNumber_.find(inode);
    return found == byNumber_.end() ? -1 : found->second;
}

DiskModel::Names* DiskModel::changeNames(unsigned long inode) {
    const int id = find(inode);
    if (id < 0) return nullptr;
    auto& versions = inodes_[static_cast<std::size_t>(id)].names;
    versions.emplace_back(count_, versions.empty() ? Names() : versions.back().second);
    return &versions.back().second;
}

void DiskModel::setText(int id, std::string text) {
    inodes_[static_cast<std::size_t>(id)].texts.emplace_back(
        count_, std::make_shared<const std::string>(std::move(text)));
}

void DiskModel::name(char kind, unsigned long parent, unsigned long inode, unsigned mode,
                     const std::string& name) {
    Names* const names = changeNames(parent);
    if (kind != 'h') {  // a new one, whoever had the number before
        byNumber_.erase(inode);
        if (names == nullptr) return;
        byNumber_[inode] = static_cast<int>(inodes_.size());
    }
    const int id = find(inode);
    if (names == nullptr || id < 0) return;
    (*names)[name] = id;
    if (kind == 'h') return;
    Inode made;
    made.kind = kind;
    made.mode = mode;
    inodes_.push_back(std::move(made));
}

void DiskModel::move(bool exchange, unsigned long from, unsigned long to, const std::string& names) {
    const std::string name = names.substr(0, names.find('/')), other = names.substr(names.find('/') + 1);
    Names* const source = changeNames(from);
    Names* const target = from == to ? source : changeNames(to);
    const int moved = source != nullptr && source->count(name) != 0 ? source->at(name) : -1;
    const int replaced = target != nullptr && target->count(other) != 0 ? target->at(other) : -1;
    if (source != nullptr) source->erase(name);
    if (target != nullptr) target->erase(other);
    if (target != nullptr && moved >= 0) (*target)[other] = moved;
    if (exchange && source != nullptr && replaced >= 0) (*source)[name] = replaced;
}

void DiskModel::apply(const std::string& kind, unsigned long one, unsigned long other, unsigned long more,
                      const std::string& rest) {
    if (kind == "create") name('f', one, other, static_cast<unsigned>(more), rest);
    if (kind == "mkdir") name('d', one, other, static_cast<unsigned>(more), rest);
    if (kind == "symlink") name('l', one, other, static_cast<unsigned>(more), rest);
    if (kind == "link") name('h', one, other, 0, rest);
    if (kind == "rename" || kind == "exchange") move(kind == "exchange", one, other, rest);
    if (kind == "size") resize(one, other);
    if (kind == "sync") syncs_.push_back(count_);
    if (kind == "child") children_.push_back(count_);
    if (kind == "flush" && find(one) >= 0)
        inodes_[static_cast<std::size_t>(find(one))].flushes.push_back(count_);
    Names* const names = kind == "unlink" ? changeNames(one) : nullptr;
    if (names != nullptr) names->erase(rest);
}

void DiskModel::write(unsigned long inode, std::size_t at, const std::string& bytes) {
    writes_.emplace_back(count_, bytes);
    const int id = find(inode);
    if (id < 0) return;
    const auto& texts = inodes_[static_cast<std::size_t>(id)].texts;
    std::string text = texts.empty() ? "" : *texts.back().second;
    text.resize(std::max(text.size(), at + bytes.size()), '\0');
    setText(id, text.replace(at, bytes.size(), bytes));
}

void DiskModel::resize(unsigned long inode, std::size_t size) {
    const int id = find(inode);
    if (id < 0) return;
    const auto& texts = inodes_[static_cast<std::size_t>(id)].texts;
    std::string text = texts.empty() ? "" : *texts.back().second;
    text.resize(size, '\0');
    setText(id, std::move(text));
}

std::vector<std::size_t> DiskModel::flushes() const {
    std::vector<std::size_t> all = syncs_;
    for (const Inode& inode : inodes_)
        all.insert(all.end(), inode.flushes.begin(), inode.flushes.end());
    std::sort(all.begin(), all.end());
    return all;
}

DiskModel DiskModel::withoutFlush(std::size_t operation) const {
    DiskModel other = *this;
    const auto remove = [operation](std::vector<std::size_t>& all) {
        all.erase(std::remove(all.begin(), all.end(), operation), all.end());
    };
    remove(other.syncs_);
    for (Inode& inode : other.inodes_)
        remove(inode.flushes);
    return other;
}

std::size_t DiskModel::firstWrite(const std::string& text) const {
    for (const auto& [at, bytes] : writes_) {
        if (bytes.find(text) != std::string::npos) return at;
    }
    return 0;
}

std::size_t DiskModel::childBefore(std::size_t operation) const {
    return operation == 0 ? 0 : lastUpTo(children_, operation - 1);
}

bool DiskModel::syncedBetween(std::size_t from, std::size_t to) const {
    return lastUpTo(syncs_, to) > from;
}

/// One state, from the tops down.
class DiskModel::Walk {
  public:
    Walk(const DiskModel& model, std::size_t cut, Survival survival, std::uint32_t seed)
        : model_(model), cut_(cut), survival_(survival), random_(seed) {}

    DiskTree tree() {
        for (const auto& [name, id] : model_.tops_)
            visit(name, model_.inodes_[static_cast<std::size_t>(id)]);
        return std::move(tree_);
    }

  private:
    void visit(const std::string& path, const Inode& inode) {
        DiskEntry& entry = tree_[path];
        entry.kind = inode.kind;
        entry.mode = inode.mode;
        const std::size_t safe = std::max(lastUpTo(inode.flushes, cut_), lastUpTo(model_.syncs_, cut_));
        if (inode.kind != 'd') {
            // A link is made with its target, which the record has as an operation of its own.
            entry.text = inode.kind == 'l' ? textAt(inode, cut_ + 1) : textOf(inode, safe);
            return;
        }
        entry.text = std::make_shared<const std::string>();
        const Names* const names = valueAt(inode.names, namesAt(safe));
        if (names == nullptr) return;
        for (const auto& [name, id] : *names)
            visit(path + "/" + name, model_.inodes_[static_cast<std::size_t>(id)]);
    }

    std::size_t namesAt(std::size_t safe) {
        if (survival_ == Survival::nothing || survival_ == Survival::data) return safe;
        if (survival_ != Survival::mixed || random_() % 2 == 0) return cut_;
        return safe + random_() % (cut_ - safe + 1);
    }

    static std::shared_ptr<const std::string> textAt(const Inode& inode, std::size_t at) {
        const auto* const found = valueAt(inode.texts, at);
        return found == nullptr ? std::make_shared<const std::string>() : *found;
    }

    std::shared_ptr<const std::string> textOf(const Inode& inode, std::size_t safe) {
        const auto old = textAt(inode, safe), now = textAt(inode, cut_);
        if (old == now) return now;
        switch (survival_) {
            case Survival::nothing:
            case Survival::names:
                return old;
            case Survival::all:
            case Survival::data:
                return now;
            case Survival::namesAndSizes:
                return sectors(*old, *now, [] { return false; });
            case Survival::mixed:
                break;
        }
        switch (random_() % 4) {
            case 0:
                return old;
            case 1:
                return now;
            case 2:
                return sectors(*old, *now, [] { return false; });
            default:
                return sectors(*old, *now, [this] { return random_() % 2 == 0; });
        }
    }

    /// The size as it is now; each sector's new bytes when `survives` says so, else the old ones, or zeros.
    static std::shared_ptr<const std::string> sectors(const std::string& old, const std::string& now,
                                                      const std::function<bool()>& survives) {
        std::string text = old;
        text.resize(now.size(), '\0');
        for (std::size_t at = 0; at < now.size(); at += kSector) {
            if (survives()) text.replace(at, kSector, now, at, kSector);
        }
        return std::make_shared<const std::string>(std::move(text));
    }

    const DiskModel& model_;
    const std::size_t cut_;
    const Survival survival_;
    std::mt19937 random_;
    DiskTree tree_;
};

DiskTree DiskModel::state(std::size_t cut, Survival survival, std::uint32_t seed) const {
    return Walk(*this, cut, survival, seed).tree();
}

}  // namespace zelor::test
