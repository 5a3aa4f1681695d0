# Cross build for the receivers: 32-bit Arm Linux, hard-float ABI, ARMv7-A
# with VFPv3-D16 (Debian armhf baseline; no NEON assumed). Tests run under
# qemu user-mode emulation against the cross C library.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)

set(DRLIB_ARM_TRIPLE arm-linux-gnueabihf)
set(CMAKE_C_COMPILER ${DRLIB_ARM_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${DRLIB_ARM_TRIPLE}-g++)
# No fused multiply-add on this FPU, but keep contraction off in the flags too,
# so that anything built with this file rounds every product like the desktop.
set(DRLIB_ARM_FLAGS "-march=armv7-a -mfpu=vfpv3-d16 -mfloat-abi=hard -ffp-contract=off")
set(CMAKE_C_FLAGS_INIT "${DRLIB_ARM_FLAGS}")
# -Wno-psabi: GCC notes that passing some std::vector iterators changed in GCC 7.1;
# everything here is built by one compiler and the C interface passes no such type.
set(CMAKE_CXX_FLAGS_INIT "${DRLIB_ARM_FLAGS} -Wno-psabi")

set(CMAKE_FIND_ROOT_PATH /usr/${DRLIB_ARM_TRIPLE})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L /usr/${DRLIB_ARM_TRIPLE})
