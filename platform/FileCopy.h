#pragma once

#include <sys/stat.h>
#include <time.h>

/// What differs between systems when a file is copied.
namespace zelor {

/// Copies the content of one open file to another, by the kernel where it can (reflink, copy_file_range,
/// fcopyfile); false on failure, errno set.
bool copyFileData(int source, int target);
/// Copies extended attributes (resource forks among them) where the system has them; false on failure, errno
/// set.
bool copyFileAttributes(int source, int target);
struct timespec accessTime(const struct stat& info);
struct timespec modificationTime(const struct stat& info);

}  // namespace zelor
