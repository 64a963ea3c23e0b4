#include <atomic>
#include <cstring>
#include <mutex>

#include "deskaid/diag/crash_handler.h"
#include "deskaid/diag/internal/crash_annotations.h"

namespace deskaid {
namespace {

// Writers take turns through a mutex; the crash path takes no lock. It copies a slot and keeps the
// copy only when the slot's version was even (not being written) and unchanged around the copy.
struct AnnotationSlot {
  std::atomic<unsigned> version{0};
  bool used = false;
  char key[kMaxCrashAnnotationKey + 1] = {};
  char value[kMaxCrashAnnotationValue + 1] = {};
};

AnnotationSlot g_slots[kMaxCrashAnnotations];
std::mutex g_writers;

bool IsKeyCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '.' || c == '-';
}

bool IsValidKey(const char* key) {
  const size_t length = std::strlen(key);
  if (length == 0 || length > kMaxCrashAnnotationKey) return false;
  for (size_t i = 0; i < length; ++i)
    if (!IsKeyCharacter(key[i])) return false;
  return true;
}

// One line per annotation: line breaks and other control characters have no place in a value.
bool IsValidValue(const char* value) {
  const size_t length = std::strlen(value);
  if (length > kMaxCrashAnnotationValue) return false;
  for (size_t i = 0; i < length; ++i)
    if (static_cast<unsigned char>(value[i]) < 0x20 || value[i] == 0x7F) return false;
  return true;
}

}  // namespace

void VisitCrashAnnotations(void (*visit)(const char*, const char*, void*), void* context) {
  static AnnotationSlot copy;
  for (AnnotationSlot& slot : g_slots) {
    const unsigned before = slot.version.load(std::memory_order_acquire);
    if (before % 2 != 0) continue;
    copy.used = slot.used;
    std::memcpy(copy.key, slot.key, sizeof copy.key);
    std::memcpy(copy.value, slot.value, sizeof copy.value);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (slot.version.load(std::memory_order_relaxed) != before || !copy.used) continue;
    copy.key[kMaxCrashAnnotationKey] = copy.value[kMaxCrashAnnotationValue] = '\0';
    visit(copy.key, copy.value, context);
  }
}

}  // namespace deskaid

bool SetCrashAnnotation(const char* key, const char* value) {
  using deskaid::AnnotationSlot;
  if (key == nullptr || value == nullptr || !deskaid::IsValidKey(key) ||
      !deskaid::IsValidValue(value)) {
    return false;
  }
  std::lock_guard<std::mutex> lock(deskaid::g_writers);
  AnnotationSlot* target = nullptr;
  for (AnnotationSlot& slot : deskaid::g_slots)
    if (slot.used && std::strcmp(slot.key, key) == 0) target = &slot;
  for (AnnotationSlot& slot : deskaid::g_slots)
    if (target == nullptr && !slot.used && value[0] != '\0') target = &slot;
  if (target == nullptr) return value[0] == '\0';  // nothing to remove, or no room left
  target->version.fetch_add(1, std::memory_order_acq_rel);  // odd: being written
  target->used = value[0] != '\0';
  std::strcpy(target->key, key);
  std::strcpy(target->value, value);
  target->version.fetch_add(1, std::memory_order_release);
  return true;
}
