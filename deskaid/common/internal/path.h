// Splitting and joining paths the way the Windows runtime's _splitpath and _makepath do, with the
// platform's separators ('\\' and '/' on Windows, '/' elsewhere).
#pragma once

#include <cstddef>
#include <string>

namespace deskaid {

// The length of the drive and directory part of `path` (what SplitPath gives as drive and
// directory); without the heap, for a crash report.
size_t FolderLength(const char* path);

struct SplitPath {
  explicit SplitPath(const char* path);
  std::string drive;      // "C:" or empty
  std::string directory;  // up to and including the last separator, or empty
  std::string name;       // the file name without its extension
  std::string extension;  // from the last '.' of the file name on, or empty
};

// Joins the parts, adding a separator after a directory that lacks one and a '.' before an
// extension that lacks one.
std::string MakePath(const std::string& drive, const std::string& directory,
                     const std::string& name, const std::string& extension);

}  // namespace deskaid
