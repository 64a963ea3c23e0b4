// Opened by the hyperlink tests through the shell: writes "<own path>.marker" and exits.
#include <windows.h>

#include <cstdio>
#include <cstring>

int main() {
  char path[MAX_PATH + 16] = {};
  DWORD n = ::GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (n == 0 || n >= MAX_PATH) return 1;
  std::strcat(path, ".marker");
  std::FILE* f = std::fopen(path, "wb");
  if (f == nullptr) return 1;
  std::fputs("opened\n", f);
  std::fclose(f);
  return 0;
}
