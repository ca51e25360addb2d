// usage: fuzz TARGET [options and corpora of libFuzzer]; without a target the names of all.
#include "target.h"

static Target g_target = nullptr;

extern "C" int LLVMFuzzerInitialize(int* count, char*** arguments) {
    const std::string name = *count > 1 ? (*arguments)[1] : "";
    for (const auto& [each, target] : g_targets)
        if (name.empty()) puts(each.c_str());
    if (!g_targets.contains(name)) exit(name.empty() ? 0 : 2);
    g_target = g_targets[name];
    (*arguments)[1] = (*arguments)[0];
    ++*arguments;
    --*count;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    run_target(g_target, {reinterpret_cast<const char*>(data), size});
    return 0;
}
