#include "deskaid/common/internal/path.h"

#include <cstring>

#include "deskaid/common/internal/platform.h"

namespace deskaid {

size_t FolderLength(const char* path) {
  size_t length = platform::DriveLength(path);
  for (size_t i = length; path[i] != '\0'; ++i) {
    if (platform::IsPathSeparator(path[i])) length = i + 1;
  }
  return length;
}

SplitPath::SplitPath(const char* path) {
  const std::string whole = path;
  const size_t driveLength = platform::DriveLength(path);
  const size_t nameStart = FolderLength(path);
  drive = whole.substr(0, driveLength);
  directory = whole.substr(driveLength, nameStart - driveLength);
  std::string file = whole.substr(nameStart);
  size_t dot = file.rfind('.');
  if (dot == std::string::npos) {
    name = file;
  } else {
    name = file.substr(0, dot);
    extension = file.substr(dot);
  }
}

std::string MakePath(const std::string& drive, const std::string& directory,
                     const std::string& name, const std::string& extension) {
  std::string path = drive;
  path += directory;
  if (!directory.empty() && !platform::IsPathSeparator(directory.back())) {
    path += platform::kPathSeparator;
  }
  path += name;
  if (!extension.empty() && extension[0] != '.') path += '.';
  path += extension;
  return path;
}

}  // namespace deskaid
