#include "base/AccessList.h"

#ifdef __APPLE__
#include <membership.h>
#include <sys/acl.h>
#include <uuid/uuid.h>

#include <cerrno>
#include <initializer_list>
#include <memory>
#else
#include <sys/xattr.h>
#endif

#include <algorithm>

namespace zelor::base {

bool othersMayChange(const std::vector<AccessEntry>& list, uid_t self) {
    return std::any_of(list.begin(), list.end(), [self](const AccessEntry& entry) {
        const bool trusted = entry.user && (*entry.user == 0 || *entry.user == self);
        return entry.allows && entry.changes && !trusted;
    });
}

#ifdef __APPLE__

namespace {

struct FreeAcl {
    void operator()(void* pointer) const { ::acl_free(pointer); }
};
using Acl = std::unique_ptr<struct _acl, FreeAcl>;

Acl aclOf(const std::string& path) {
    return Acl(::acl_get_file(path.c_str(), ACL_TYPE_EXTENDED));
}

bool changes(acl_entry_t entry) {
    acl_permset_t rights = nullptr;
    if (::acl_get_permset(entry, &rights) != 0) return true;
    const std::initializer_list<acl_perm_t> changing = {
        ACL_WRITE_DATA,       ACL_DELETE,         ACL_APPEND_DATA,  ACL_DELETE_CHILD,
        ACL_WRITE_ATTRIBUTES, ACL_WRITE_SECURITY, ACL_CHANGE_OWNER, ACL_WRITE_EXTATTRIBUTES};
    return std::any_of(changing.begin(), changing.end(),
                       [rights](acl_perm_t right) { return ::acl_get_perm_np(rights, right) != 0; });
}

std::optional<uid_t> userOf(acl_entry_t entry) {
    const std::unique_ptr<void, FreeAcl> subject(::acl_get_qualifier(entry));
    uid_t id = 0;
    int kind = 0;
    if (!subject || ::mbr_uuid_to_id(static_cast<const unsigned char*>(subject.get()), &id, &kind) != 0 ||
        kind != ID_TYPE_UID)
        return std::nullopt;
    return id;
}

AccessEntry entryOf(acl_entry_t entry) {
    acl_tag_t tag = ACL_UNDEFINED_TAG;
    const bool known = ::acl_get_tag_type(entry, &tag) == 0;
    return {!known || tag != ACL_EXTENDED_DENY, changes(entry), userOf(entry)};
}

}  // namespace

bool hasAccessList(const std::string& path) {
    errno = 0;
    return aclOf(path) || (errno != ENOENT && errno != EOPNOTSUPP && errno != 0);
}

std::vector<AccessEntry> readAccessList(const std::string& path) {
    std::vector<AccessEntry> list;
    errno = 0;
    const Acl acl = aclOf(path);
    if (!acl) {
        if (errno != ENOENT && errno != EOPNOTSUPP) list.push_back({true, true, std::nullopt});
        return list;
    }
    acl_entry_t entry = nullptr;
    for (int which = ACL_FIRST_ENTRY; ::acl_get_entry(acl.get(), which, &entry) == 0; which = ACL_NEXT_ENTRY)
        list.push_back(entryOf(entry));
    return list;
}

#else

bool hasAccessList(const std::string& path) {
    return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

std::vector<AccessEntry> readAccessList(const std::string& /*path*/) {
    return {};
}

#endif

}  // namespace zelor::base
