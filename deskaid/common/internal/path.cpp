#include "deskaid/common/internal/path.h"

#include <cstring>

#include "deskaid/common/internal/platform.h"

namespace deskaid {

SplitPath::SplitPath(const char* path) {
  std::string rest = path;
  const size_t driveLength = platform::DriveLength(path);
  drive = rest.substr(0, driveLength);
  rest.erase(0, driveLength);
  size_t nameStart = 0;
  for (size_t i = 0; i < rest.size(); ++i) {
    if (platform::IsPathSeparator(rest[i])) nameStart = i + 1;
  }
  directory = rest.substr(0, nameStart);
  std::string file = rest.substr(nameStart);
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
