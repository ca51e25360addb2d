// What the watcher of unaligned accesses is tried with. By default a planted fault: a word is loaded from an odd address,
// which the board's processor refuses and the emulated one does. Otherwise, as the argument says:
//   several   the same of two words in one instruction, which the emulated processor refuses as well
//   pair      an instruction for a double word, on four bytes and not on eight
//   page      no fault: words, in a Thumb instruction at the end of a page, which with the next looks like a pair's
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

alignas(8) unsigned char bytes[32] = {1, 2, 3, 4, 5, 6, 7, 8};

// Where the compiler cannot see that it is no place for a word.
template <class T>
const volatile T* misplaced(size_t offset) {
    unsigned char* place = bytes + offset;
    __asm__ volatile("" : "+r"(place));
    return reinterpret_cast<const volatile T*>(place);
}

uint32_t load_word() { return *misplaced<uint32_t>(1); }

#if defined(__arm__)

__attribute__((target("arm"), noinline)) uint32_t load_several() {
    uint32_t first = 0, second = 0;
    __asm__ volatile("ldmia %2, {%0, %1}"
                     : "=&r"(first), "=&r"(second)
                     : "r"(misplaced<uint32_t>(1))
                     : "memory");
    return first;
}

__attribute__((target("arm"), noinline)) uint32_t load_pair() {
    uint64_t both = 0;
    __asm__ volatile("ldrd %0, %H0, [%1]" : "=&r"(both) : "r"(misplaced<uint32_t>(4)) : "memory");
    return static_cast<uint32_t>(both);
}

// On entry the stack is on eight bytes; five words less, it is not.
extern "C" uint32_t store_before_end_of_page(uint32_t, uint32_t);
__asm__(R"(
    .pushsection .text
    .syntax unified
    .thumb
    .balign 1024
    .space 1024 - 4
    .thumb_func
    .type store_before_end_of_page, %function
store_before_end_of_page:
    push {r4, r5, r6, r7, lr}
    movs r5, r1
    movs r0, r5
    pop {r4, r5, r6, r7, pc}
    .popsection
)");

#endif

uint32_t run(const char* what) {
#if defined(__arm__)
    if (strcmp(what, "several") == 0) return load_several();
    if (strcmp(what, "pair") == 0) return load_pair();
    if (strcmp(what, "page") == 0) return store_before_end_of_page(1, 2);
#endif
    return strcmp(what, "word") == 0 ? load_word() : 0;
}

}  // namespace

int main(int argc, char** argv) {
    printf("loaded %x\n", static_cast<unsigned>(run(argc > 1 ? argv[1] : "word")));
    return 0;
}
