# The adapter runs as root, and root may run runlet-job: whatever is released has all that makes a
# mistake in it harder to use. tests/check_hardening looks whether it arrives in the files, and
# tests/check_sources whether every kind of release is compiled with it.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)
check_pie_supported()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# Not every compiler has these, or has them for every processor.
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

# Where a sanitizer looks, it is to see the mistakes itself.
set(hardened
  $<AND:$<CONFIG:Release,RelWithDebInfo,MinSizeRel>,$<NOT:$<BOOL:${RUNLET_SANITIZE}>>>)

# harden(TARGET): for what links to it.
function(harden target)
  target_compile_options(${target} INTERFACE
    $<${hardened}:-fstack-protector-strong;-U_FORTIFY_SOURCE>
    $<${hardened}:-D_FORTIFY_SOURCE=$<IF:$<BOOL:${RUNLET_HAS_FORTIFY_3}>,3,2>>
    $<$<AND:${hardened},$<BOOL:${RUNLET_HAS_STACK_CLASH_PROTECTION}>>:-fstack-clash-protection>
    $<$<AND:${hardened},$<BOOL:${RUNLET_HAS_CF_PROTECTION}>>:-fcf-protection>)
  target_link_options(${target} INTERFACE
    $<${hardened}:LINKER:-z,relro,-z,now,-z,noexecstack>)
endfunction()
