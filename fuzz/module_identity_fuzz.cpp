// The readers of outside data behind module references: image headers (PE and ELF, laid out as
// in a file and as loaded), module records and references in log text. None may crash or read
// outside its input; a record that parses must come back the same through its text form.
#include <cstdint>
#include <cstring>
#include <string>

#include "deskaid/diag/internal/module_identity.h"

namespace {

struct Bytes {
  const uint8_t* data;
  size_t size;
};

bool ReadBytes(void* source, uint64_t offset, void* out, size_t size) {
  const Bytes* bytes = static_cast<const Bytes*>(source);
  if (offset > bytes->size || size > bytes->size - offset) return false;
  std::memcpy(out, bytes->data + offset, size);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Bytes bytes{data, size};
  deskaid::ModuleIdentity identity;
  deskaid::ReadImageIdentity(ReadBytes, &bytes, false, identity);
  deskaid::ReadImageIdentity(ReadBytes, &bytes, true, identity);

  const std::string text(reinterpret_cast<const char*>(data), size);
  deskaid::ModuleReference reference;
  if (deskaid::FindModuleReference(text.c_str(), reference) &&
      (reference.begin >= reference.end || reference.end > text.size()))
    __builtin_trap();
  deskaid::ModuleIdentity parsed;
  if (deskaid::ParseModuleRecord(text.c_str(), parsed)) {
    // What the writer says of a parsed record reads back as the same identity.
    char record[4096];
    deskaid::FormatModuleRecord(parsed, record, sizeof record);
    deskaid::ModuleIdentity again;
    if (!deskaid::ParseModuleRecord(record, again)) __builtin_trap();
    char second[4096];
    deskaid::FormatModuleRecord(again, second, sizeof second);
    if (std::strcmp(record, second) != 0) __builtin_trap();
  }
  return 0;
}
