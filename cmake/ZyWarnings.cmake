# One place for the flags every target of the project gets.
add_library(zy_options INTERFACE)
target_compile_options(zy_options INTERFACE
  -Wall -Wextra
  # Results must agree bit for bit between x86-64 and arm64: no contraction of a*b+c into
  # a fused multiply-add, and never -ffast-math.
  $<$<COMPILE_LANGUAGE:C,CXX>:-ffp-contract=off>
  $<$<BOOL:${ZY_WERROR}>:-Werror>)
if(ZY_SANITIZE)
  target_compile_options(zy_options INTERFACE -fsanitize=${ZY_SANITIZE} -fno-omit-frame-pointer
                         -fno-sanitize-recover=all)
  target_link_options(zy_options INTERFACE -fsanitize=${ZY_SANITIZE})
endif()
if(ZY_SCALAR_ONLY)
  target_compile_definitions(zy_options INTERFACE ZY_SCALAR_ONLY=1)
endif()
