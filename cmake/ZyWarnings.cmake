# One place for the flags every target of the project gets.
add_library(zy_options INTERFACE)
target_compile_options(zy_options INTERFACE
  -Wall -Wextra
  # A local that hides another, and a conversion that can change a value, are mistakes here
  # far more often than intent; an intended one says so with a cast.
  -Wshadow -Wconversion
  # Results must agree bit for bit between x86-64 and arm64: no contraction of a*b+c into
  # a fused multiply-add, and never -ffast-math.
  $<$<COMPILE_LANGUAGE:C,CXX>:-ffp-contract=off>
  $<$<BOOL:${ZY_WERROR}>:-Werror>)
if(ZY_SANITIZE)
  target_compile_options(zy_options INTERFACE -fsanitize=${ZY_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  # Every program and shared library of a sanitizer build links the runtime, also those that
  # do not take zy_options (a test program linking only the shared library would otherwise load
  # the runtime after libc, which AddressSanitizer refuses).
  add_link_options(-fsanitize=${ZY_SANITIZE})
  if(CMAKE_CROSSCOMPILING_EMULATOR AND ZY_SANITIZE MATCHES "address")
    # LeakSanitizer dies with a fatal error under qemu-user; AddressSanitizer itself works.
    # The sanitizer runtime reads its options from /proc/self/environ, which under qemu is the
    # emulator's own environment (qemu's -E only reaches the guest's getenv), so the setting is
    # put in front of the emulator, where test discovery at build time gets it too.
    list(PREPEND CMAKE_CROSSCOMPILING_EMULATOR
         ${CMAKE_COMMAND} -E env ASAN_OPTIONS=detect_leaks=0:abort_on_error=1)
  endif()
endif()
if(ZY_X86_64_LEVEL AND CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  target_compile_options(zy_options INTERFACE $<$<COMPILE_LANGUAGE:C,CXX>:-march=${ZY_X86_64_LEVEL}>)
endif()
if(ZY_SCALAR_ONLY)
  # The plain scalar build: the reference kernels, and no vector code from the compiler either,
  # so that it is the baseline against which the fast paths and the vectorised loops are counted.
  target_compile_definitions(zy_options INTERFACE ZY_SCALAR_ONLY=1)
  target_compile_options(zy_options INTERFACE
                         $<$<COMPILE_LANGUAGE:C,CXX>:-fno-tree-vectorize -fno-tree-slp-vectorize>)
endif()
