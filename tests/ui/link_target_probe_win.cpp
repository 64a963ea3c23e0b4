// Opened by the hyperlink tests through the shell: creates "<own path>.marker" and exits.
#include <windows.h>

#include <cstdio>
#include <cstring>

int main() {
  char path[MAX_PATH + 16] = {};
  DWORD n = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::FILE* f = n == 0 || n >= MAX_PATH ? nullptr : std::fopen(std::strcat(path, ".marker"), "wb");
  return f == nullptr || std::fclose(f) != 0;
}
