# The board's processor, with Debian's cross-compiler. Programs built for it run here under QEMU.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# That GCC 7 passed some arguments in another way is no news to a program that it never compiled.
set(cortex "-mcpu=cortex-a17 -mfpu=neon-vfpv4 -mfloat-abi=hard -Wno-psabi")
set(CMAKE_C_FLAGS_INIT "${cortex}")
set(CMAKE_CXX_FLAGS_INIT "${cortex}")
# They are run with Debian's own libraries for it: those of the cross-compiler don't fit beside them.
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm)

# Debian's packages for the board put their libraries into the second.
set(CMAKE_FIND_ROOT_PATH /usr/arm-linux-gnueabihf /usr/lib/arm-linux-gnueabihf)
set(CMAKE_LIBRARY_PATH /usr/lib/arm-linux-gnueabihf)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
