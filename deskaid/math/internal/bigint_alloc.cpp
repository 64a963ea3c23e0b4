#include "deskaid/math/internal/bigint_alloc.h"

#include <cstdlib>

namespace deskaid {
namespace {

int64_t g_requests = 0;
int64_t g_failAt = 0;  // request number that fails; 0 = none
bool g_sticky = false;
int64_t g_injected = 0;

}  // namespace

void* BigIntAllocate(uint64_t bytes) {
  ++g_requests;
  if (g_failAt != 0 && (g_requests == g_failAt || (g_sticky && g_requests > g_failAt))) {
    ++g_injected;
    return nullptr;
  }
  if (bytes >= 0xFFFFFFFFull) return nullptr;
  return std::malloc(bytes == 0 ? 1 : static_cast<size_t>(bytes));
}

void BigIntRelease(void* block) { std::free(block); }

void SetBigIntAllocationFailure(int64_t nth, bool sticky) {
  g_failAt = nth > 0 ? g_requests + nth : 0;
  g_sticky = sticky;
}

int64_t BigIntAllocationCount() { return g_requests; }

int64_t BigIntInjectedFailures() { return g_injected; }

}  // namespace deskaid
