// A client that writes an image to flash: "flash_image ADDRESS LENGTH SEED" in hexadecimal. The bytes depend
// on SEED.
#include <libmarl.h>

#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
    if (argc != 4) return 2;
    uint32_t numbers[3];
    for (int i = 0; i < 3; ++i) numbers[i] = static_cast<uint32_t>(strtoul(argv[i + 1], nullptr, 16));
    const auto [address, length, seed] = numbers;
    std::vector<uint8_t> image(length);
    for (uint32_t i = 0; i < length; ++i) image[i] = static_cast<uint8_t>(i * 2654435761U >> 24 ^ seed);
    const int32_t mode = 0;
    RawFlash* flash = nullptr;
    if (createRawFlash(&mode, &flash) < 0) return 3;
    const int result = flash->write(flash, image.data(), address, length);
    flash->release(flash);
    return result > 0 ? 0 : 4;
}
