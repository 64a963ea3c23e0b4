// What identifies the build of a module (an executable or a shared library), read from the module
// as loaded or from an image file, and the log's two text forms built on it: the record that
// describes a module and the reference "<name+0xOFFSET>" to code inside one.
//
// Offsets count from the module's first byte as loaded, which for a PE image is its HMODULE and
// for an ELF file its lowest loaded page. The same offset added to the image's link base (the PE
// ImageBase, the ELF lowest loaded virtual page) gives the address its debug information uses.
#pragma once

#include <cstddef>
#include <cstdint>

#include "deskaid/common/max_path.h"

namespace deskaid {

enum class ImageFormat : uint8_t { kUnknown, kPe, kElf };

struct ModuleIdentity {
  ImageFormat format = ImageFormat::kUnknown;
  char name[kMaxPath] = {};  // the file name, without folders
  char path[kMaxPath] = {};  // where it was loaded from; for a file, the file's path
  uint64_t base = 0;         // where it is loaded; 0 for a file
  uint64_t size = 0;         // bytes it spans when loaded
  uint64_t linkBase = 0;     // the address its first byte was linked at
  // PE only: the file header's time stamp, and the optional header's SizeOfImage.
  uint32_t timeStamp = 0;
  uint32_t imageSize = 0;
  // PE with a CodeView record: the PDB's GUID in its usual text order (32 hex digits) followed by
  // the age in hex, as symbol stores key PDB files; and the PDB path the linker wrote.
  char codeView[48] = {};
  char pdbPath[kMaxPath] = {};
  // ELF with a GNU build-id note: its bytes in hex.
  char buildId[129] = {};
};

// Reads `size` bytes at `offset` of an image into `out`; false when they are not all there.
using ImageReader = bool (*)(void* source, uint64_t offset, void* out, size_t size);

// Reads a PE or ELF image's identity through `read`. `mapped`: the bytes are laid out as loaded
// (addresses relative to the first byte), not as in the file. Fills format, linkBase, size and
// the format's own fields; leaves name, path and base alone. False for anything that is not a
// well-formed little-endian PE or ELF image.
bool ReadImageIdentity(ImageReader read, void* source, bool mapped, ModuleIdentity& identity);

// The binary CodeView record the identity's codeView and pdbPath were read from: "RSDS", the GUID,
// the age and the PDB path with its terminator. Returns its length; 0 when the identity has no
// CodeView signature or `size` is too small.
size_t WriteCodeViewRecord(const ModuleIdentity& identity, uint8_t* out, size_t size);

// A loaded module's bytes, `size` of them from `base`, and an ImageReader over them.
struct MappedSpan {
  uint64_t base;
  uint64_t size;
};
bool ReadMappedSpan(void* span, uint64_t offset, void* out, size_t size);

// The identity of the PE image loaded at `base`, read in place: its headers first, within the first
// page, and then, once they give the image's size, the whole image, which brings the debug
// directory in reach. Sets base and leaves name and path empty; false when no PE image is there.
bool ReadLoadedPeIdentity(uint64_t base, ModuleIdentity& identity);

// Sets the name from the path: the part after the last folder separator.
void SetNameFromPath(ModuleIdentity& identity);

// The identity of the image file at `path`, with name and path set from it.
bool ReadImageFileIdentity(const char* path, ModuleIdentity& identity);

// The identity of the loaded module that holds `address`, with its name, path, base and size.
// False when no module holds it. Platform-specific.
bool IdentifyLoadedModule(uint64_t address, ModuleIdentity& identity);
#ifdef _WIN32
// The base (the HMODULE) of the loaded image that holds `address`; 0 when none does. Like
// IdentifyLoadedModule it takes neither the heap nor the loader's lock, which a failing thread
// may hold (inside a DLL's entry point, say).
uint64_t LoadedImageBase(uint64_t address);
#endif

// The module record: "Module: " then the quoted name and the identity as key=value words, for
// example
//   Module: "app.exe" base=0x140000000 size=0x2A000 pe time=0x6560ABCD image=0x2A000
//           cv=<GUID><age> pdb="C:\b\app.pdb" path="C:\b\app.exe"
// Quoted values end at the next '"'; a '"' inside one is written as '?'. The text is cut to fit
// `size` (which must be at least 1); returns its length. Neither this nor FormatModuleReference
// uses the heap or stdio: a crash report writes them.
size_t FormatModuleRecord(const ModuleIdentity& identity, char* out, size_t size);
// Reads a record written by FormatModuleRecord. Unknown words are skipped, so that later writers
// may add some. False when `text` is not a module record.
bool ParseModuleRecord(const char* text, ModuleIdentity& identity);

// " <name+0xOFFSET>", cut to fit `size`; returns its length.
size_t FormatModuleReference(const char* name, uint64_t offset, char* out, size_t size);

// The last reference in `text`: where it starts ('<') and ends (one past '>'), the module's name
// and the offset. False when there is none.
struct ModuleReference {
  size_t begin = 0;
  size_t end = 0;
  char name[kMaxPath] = {};
  uint64_t offset = 0;
};
bool FindModuleReference(const char* text, ModuleReference& reference);

// Null when `found` is the build that `logged` describes; otherwise why not, as a short phrase.
// Only what both sides know is compared.
const char* IdentityMismatch(const ModuleIdentity& logged, const ModuleIdentity& found);

}  // namespace deskaid
