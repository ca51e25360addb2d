// Memory barriers of processors that have no instruction for them: ARM before version 6. The compiler calls
// this routine for the orders of atomic words. That of libgcc is the same, but lies in one piece with all other
// atomic operations of all sizes, which the product does not use and would carry twice. In a program that does
// use some, libgcc's takes the place of this one.
#if defined(__ARM_ARCH) && __ARM_ARCH < 6

#include <cstdint>

extern "C" [[gnu::used, gnu::weak]] void memory_barrier() __asm__("__sync_synchronize");

// The kernel offers a routine for the processor that it runs on, at a fixed address of every process
// (Documentation/arm/kernel_user_helpers.rst).
void memory_barrier() {
    constexpr uintptr_t kMemoryBarrier = 0xFFFF0FA0;
    reinterpret_cast<void (*)()>(kMemoryBarrier)();
}

#endif
