// A fuzz target without a fuzzer, as a test: it meets its corpus, and as many texts as are asked for that are pieced together
// from it, the same ones every time.
//
// usage: replay TARGET CORPUS COUNT
#include <filesystem>
#include <fstream>
#include <random>

#include "target.h"

static std::minstd_rand g_random;

static size_t below(size_t limit) { return g_random() % limit; }

// Pieces of some inputs one after the other, some of their bytes changed.
static std::string mixed(const std::vector<std::string>& inputs) {
    std::string text = inputs[below(inputs.size())];
    for (size_t edits = 1 + below(4); edits > 0; --edits) {
        const std::string& other = inputs[below(inputs.size())];
        const size_t at = below(text.size() + 1), from = below(other.size() + 1);
        const size_t replaced = below(2) * below(16), taken = below(2) * below(64);
        text.replace(at, replaced, other, from, taken);
        if (below(3) == 0) text.insert(below(text.size() + 1), 1 + below(40), static_cast<char>(g_random()));
        if (!text.empty() && below(2) == 0) text[below(text.size())] ^= static_cast<char>(1U << below(8));
    }
    return text.substr(0, 512);
}

int main(int argc, char** argv) {
    if (argc != 4 || !g_targets.contains(argv[1])) return 2;
    const Target target = g_targets[argv[1]];
    std::vector<std::string> inputs;
    for (const auto& file : std::filesystem::directory_iterator(argv[2])) {
        std::ifstream bytes(file.path(), std::ios::binary);
        inputs.emplace_back(std::istreambuf_iterator<char>(bytes), std::istreambuf_iterator<char>());
    }
    std::sort(inputs.begin(), inputs.end());  // in whatever order the directory has them
    for (const std::string& input : inputs) run_target(target, input);
    for (unsigned long i = strtoul(argv[3], nullptr, 0); i > 0; --i) run_target(target, mixed(inputs));
}
