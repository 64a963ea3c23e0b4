// The registers a stack walk starts from: read where the macro stands, or taken from a context.
#pragma once

#include <windows.h>

#include <cstdint>
#ifdef _MSC_VER
#include <intrin.h>
#endif

namespace deskaid {

#if defined(_M_X64) || defined(__x86_64__)
inline uint64_t ProgramCounterOf(const CONTEXT& context) { return context.Rip; }
inline uint64_t StackPointerOf(const CONTEXT& context) { return context.Rsp; }
#else
inline uint64_t ProgramCounterOf(const CONTEXT& context) { return context.Eip; }
inline uint64_t StackPointerOf(const CONTEXT& context) { return context.Esp; }
#endif

}  // namespace deskaid

// Where the function in which this stands keeps the address it returns to: the stack slot just
// above its caller's frame, from which the caller's frames are found. GCC and clang keep a frame
// pointer in a function that asks for its frame's address.
#ifdef _MSC_VER
#define DESKAID_RETURN_SLOT() reinterpret_cast<uintptr_t>(_AddressOfReturnAddress())
#else
#define DESKAID_RETURN_SLOT() \
  (reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) + sizeof(void*))
#endif

#if defined(__GNUC__) && defined(__i386__)
// The program counter, frame and stack pointer of the code in which this stands, on 32-bit x86
// built by GCC. The system's capture (RtlCaptureContext) follows the caller's frame pointer,
// which GCC's code may not keep. The address of the pop is the program counter; esp is read
// after it, as the unwind tables describe that point. A macro, so that the registers read are
// those of the code that uses it and not of a function called for it.
#define DESKAID_CAPTURE_I386_REGISTERS(eip, ebp, esp)                       \
  __asm__ volatile("call 1f\n1: pop %0\n\tmovl %%ebp, %1\n\tmovl %%esp, %2" \
                   : "=r"(eip), "=r"(ebp), "=r"(esp))
#endif
