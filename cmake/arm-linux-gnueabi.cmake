# The phone: TI OMAP730, ARM926EJ-S (ARMv5TE), little-endian, no floating-point unit. Debian's EABI compiler.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv5te)
set(CMAKE_CXX_COMPILER arm-linux-gnueabi-g++)
set(CMAKE_CXX_FLAGS_INIT "-march=armv5te -mtune=arm926ej-s -marm -mfloat-abi=soft")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)
