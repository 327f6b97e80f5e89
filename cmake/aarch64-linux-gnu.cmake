# Cross build for 64-bit Arm Linux with Debian's g++-aarch64-linux-gnu; the test programs run
# under qemu-user (Debian: qemu-user). Used by the arm64 preset.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)

set(CMAKE_FIND_ROOT_PATH /usr/aarch64-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# binfmt_misc is not relied on: every arm64 program (test discovery at build time, the tests
# themselves) is started through qemu-aarch64. -L points the guest's loader at the cross C
# library. -E LD_LIBRARY_PATH keeps ld.so and libc.so.6 from the same package: once any
# multiarch libc6:arm64 is installed, the guest would otherwise find that libc through
# /etc/ld.so.cache next to the cross ld.so, and every program that starts a thread hangs.
# A value given with -DCMAKE_CROSSCOMPILING_EMULATOR=... is kept.
if(NOT DEFINED CMAKE_CROSSCOMPILING_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
endif()
