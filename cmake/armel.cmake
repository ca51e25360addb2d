# Cross build for the board: ARMv5TE, little-endian, soft float. ARM rather than Thumb code: the first Thumb set has
# no room for inline system calls and needs more stack, and the clone task has little.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)

set(CMAKE_C_COMPILER arm-linux-gnueabi-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_C_FLAGS_INIT "-march=armv5te -marm")
# Old notes about how arguments were passed before gcc 7 concern nobody here.
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -marm -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabi)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;/usr/arm-linux-gnueabi)
