// usage: fuzz TARGET [options and corpora of libFuzzer]; without a target the names of all.
#include "target.h"

static const Target* g_target = nullptr;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    const std::string name = *count > 1 ? (*arguments)[1] : "";
    for (const Target* each = Target::first; each != nullptr; each = each->next) {
        if (name.empty()) puts(each->name);
        if (each->name == name) g_target = each;
    }
    if (g_target == nullptr) exit(name.empty() ? 0 : 2);
    (*arguments)[1] = (*arguments)[0];
    ++*arguments;
    --*count;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    constexpr int kKept = 4;  // descriptors that the library keeps, at most: leaks soon add up to more
    memory::clear();
    Input input({reinterpret_cast<const char*>(data), size});
    g_target->run(input);
    require(memory::descriptors() <= kKept);
    return 0;
}
