// A planted fault: loads from odd addresses, which the board's processor refuses. By default a word; with "pair" or
// "several" an instruction that the emulated processor refuses as well.
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

}  // namespace

int main(int argc, char** argv) {
    const bool several = argc > 1 && strcmp(argv[1], "several") == 0;
    uint32_t word = 0;
    if (several) {
#if defined(__arm__)
        uint32_t next = 0;
        __asm__ volatile("ldmia %2, {%0, %1}" : "=r"(word), "=r"(next) : "r"(misplaced<uint32_t>(1)));
#endif
    } else {
        word = *misplaced<uint32_t>(1);
    }
    printf("loaded %x\n", static_cast<unsigned>(word));
    return 0;
}
