// File references as descriptors carry them: our alias record ('alis') and our 80-byte file
// reference ('fsrf'). Both name a file that existed when they were made and resolve back to its
// path only while that same file (same device, inode and birth time) is still there; a deleted
// or replaced file fails with fnfErr. Both work across processes of one user: the 80 bytes hold
// a short path themselves and refer to the per-user reference registry for a long one. Layouts
// and the registry are described in docs/formats/descriptors.md.
//
// Thread-safe.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "rvitunes/ae/Descriptor.h"
#include "rvitunes/base/Result.h"

namespace rvitunes::ae {

inline constexpr size_t kFileReferenceSize = 80;

struct FileReference {
  std::array<uint8_t, kFileReferenceSize> bytes{};
};

// A reference to the existing file or directory at `path` (made absolute against the current
// directory). fnfErr when nothing is there; ioErr when a long path cannot be recorded in the
// registry; paramErr for an empty path or one holding a NUL byte.
Result<FileReference> makeFileReference(const std::string& path);
// The absolute path the reference names. fnfErr when the file is gone or replaced, when the
// registry no longer knows a long path; paramErr when the bytes are not a reference of ours.
Result<std::string> resolveFileReference(std::span<const uint8_t> bytes);

// An alias record for the existing file at `path` (the platform's FSNewAliasMinimal).
// Failures as makeFileReference.
Result<std::vector<uint8_t>> makeAliasRecord(const std::string& path);
// The path an alias record names, while the file is the same one. fnfErr when gone or
// replaced, paramErr for bytes that are not an alias record of ours.
Result<std::string> resolveAliasRecord(std::span<const uint8_t> bytes);

// Descriptors of the three file types for an existing file.
Result<Descriptor> makeFileReferenceDesc(const std::string& path);  // 'fsrf'
Result<Descriptor> makeAliasDesc(const std::string& path);          // 'alis'
Descriptor makeFileURLDesc(const std::string& path);                // 'furl', need not exist

// The directory of the reference registry: $RVITUNES_FILEREF_DIR when set, else
// $XDG_CACHE_HOME/rvitunes/file-references, else ~/.cache/rvitunes/file-references.
std::string fileReferenceRegistryDirectory();
// Forgets the paths this process remembers, so that the next resolutions read the registry as
// another process would. For tests.
void clearFileReferenceCache();

}  // namespace rvitunes::ae
