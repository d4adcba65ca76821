# The adapter runs as root, and root may run runlet-job: releases have everything that makes a bug
# in them harder to exploit. tests/check_hardening checks the resulting files, and
# tests/check_sources that every kind of release is compiled this way.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Not every compiler supports these, or not for every processor.
check_cxx_compiler_flag(-fstack-clash-protection RUNLET_HAS_STACK_CLASH_PROTECTION)
check_cxx_compiler_flag(-fcf-protection RUNLET_HAS_CF_PROTECTION)
set(CMAKE_REQUIRED_FLAGS "-O2 -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3 -Werror")
check_cxx_source_compiles("
  #include <cstdlib>
  #if __USE_FORTIFY_LEVEL != 3
  #error
  #endif
  int main() {}" RUNLET_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)

# Not with a sanitizer, which should report the bugs itself.
set(hardened
  $<AND:$<CONFIG:Release,RelWithDebInfo,MinSizeRel>,$<NOT:$<BOOL:${RUNLET_SANITIZE}>>>)

# harden(TARGET): applies to everything that links to it.
function(harden target)
  target_compile_options(${target} INTERFACE
    $<${hardened}:-fstack-protector-strong;-U_FORTIFY_SOURCE>
    $<${hardened}:-D_FORTIFY_SOURCE=$<IF:$<BOOL:${RUNLET_HAS_FORTIFY_3}>,3,2>>
    $<$<AND:${hardened},$<BOOL:${RUNLET_HAS_STACK_CLASH_PROTECTION}>>:-fstack-clash-protection>
    $<$<AND:${hardened},$<BOOL:${RUNLET_HAS_CF_PROTECTION}>>:-fcf-protection>)
  target_link_options(${target} INTERFACE
    $<${hardened}:LINKER:-z,relro,-z,now,-z,noexecstack>)
endfunction()
