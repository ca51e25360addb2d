# Cross build for the board: ARMv5TE, little-endian, soft float, and Thumb code, which is a third smaller.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)

set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -mthumb")
# These understand what the compiler leaves for the link-time optimiser.
set(CMAKE_AR arm-linux-gnueabi-gcc-ar)
set(CMAKE_RANLIB arm-linux-gnueabi-gcc-ranlib)
# Old notes about how arguments were passed before gcc 7 concern nobody here.
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mthumb -Wno-psabi")
# The processor changes between the two instruction sets by itself, so no call needs a detour for it.
set(CMAKE_EXE_LINKER_FLAGS_INIT -Wl,--use-blx)
set(CMAKE_SHARED_LINKER_FLAGS_INIT -Wl,--use-blx)

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabi)
