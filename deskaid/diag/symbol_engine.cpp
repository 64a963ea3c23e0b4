// The parts of the symbol engine that are the same over every debug-help back end.
#include "deskaid/diag/symbol_engine.h"

#include <cstdint>

namespace {
constexpr uint32_t kNotInitialized = 1;  // ERROR_INVALID_FUNCTION
constexpr uint32_t kBadArgument = 87;    // ERROR_INVALID_PARAMETER

// Null and INVALID_HANDLE_VALUE (all bits set) name no file.
bool IsNoFile(SymHandle file) {
  return file == nullptr || file == reinterpret_cast<SymHandle>(static_cast<intptr_t>(-1));
}
}  // namespace

uint64_t CSymbolEngine::LoadModule(const std::string& imageName, uint64_t base, uint32_t size) {
  if (imageName.empty()) {
    m_dwLastError = kBadArgument;
    return 0;
  }
  return LoadModule(nullptr, imageName, base, size);
}

uint64_t CSymbolEngine::LoadModule(SymHandle file, uint64_t base, uint32_t size) {
  if (IsNoFile(file)) {
    m_dwLastError = kBadArgument;
    return 0;
  }
  return LoadModule(file, std::string(), base, size);
}

bool CSymbolEngine::CheckInitialized() {
  if (m_hProcess != nullptr) return true;
  m_dwLastError = kNotInitialized;
  return false;
}

bool CSymbolEngine::CheckUnloadArguments(uint64_t base) {
  if (!CheckInitialized()) return false;
  if (base == 0) {
    m_dwLastError = kBadArgument;
    return false;
  }
  return true;
}
