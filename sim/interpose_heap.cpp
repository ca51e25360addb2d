// The heap: allocations that the program itself makes can fail. Those of the board, of the C library and of the
// C++ runtime never do, and nothing is looked at unless the script asks for a fault of the heap.
#include <dlfcn.h>

#include "interpose.h"

namespace sim {
namespace {

bool is_programs(const void* caller) {
    Dl_info object{};
    if (dladdr(caller, &object) == 0) return false;
    const char* name = basename(object.dli_fname);
    for (const char* other : {"libmarlsim.", "libc.", "libstdc++.", "ld-"}) {
        if (strncmp(name, other, strlen(other)) == 0) return false;
    }
    return true;
}

bool fails(const char* op, const void* caller) {
    if (!script::may_fail("heap") || !is_programs(caller)) return false;
    const int64_t fault = aside([&] { return script::fault_of("heap", op); });
    if (fault < 0) errno = ENOMEM;
    return fault < 0;
}

}  // namespace
}  // namespace sim

using namespace sim;

// Also called before anything else is there, and by the search for the real ones.
#define ALLOCATION(name, early, parameters, arguments)                 \
    EXPORT void* name parameters noexcept {                            \
        find_real_functions();                                         \
        if (real.name == nullptr) return early arguments;              \
        if (fails(#name, __builtin_return_address(0))) return nullptr; \
        return real.name arguments;                                    \
    }

extern "C" {
void* __libc_malloc(size_t size);  // NOLINTBEGIN(bugprone-reserved-identifier)
void* __libc_calloc(size_t number, size_t size);
void* __libc_realloc(void* block, size_t size);  // NOLINTEND(bugprone-reserved-identifier)
}

ALLOCATION(malloc, __libc_malloc, (size_t size), (size))
ALLOCATION(calloc, __libc_calloc, (size_t number, size_t size), (number, size))
ALLOCATION(realloc, __libc_realloc, (void* block, size_t size), (block, size))
