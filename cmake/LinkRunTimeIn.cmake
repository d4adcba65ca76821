# A released program has the C++ run-time library in it. Loading and relocating libstdc++ would be
# more than half of what the adapter's start costs, and the farm starts it for every request.
#
# The C library stays shared, on purpose: it reaches the user database through modules of the name
# service (LDAP, SSSD and the like), which are libraries themselves. A program with its own C
# library in it can't load those reliably, and the adapter looks users up.
include(CheckLinkerFlag)

# Some distributions package the static libraries apart. A shared TinyXML would bring the shared
# libstdc++ along, and there must not be two of them.
check_linker_flag(CXX "-static-libstdc++;-static-libgcc" RUNLET_HAS_STATIC_RUN_TIME)
if(RUNLET_HAS_STATIC_RUN_TIME AND TinyXML_STATIC_LIBRARY)
  set(RUNLET_LINKS_RUN_TIME_IN ON)
endif()

# link_run_time_in(TARGET): in release builds, where the static libraries are there.
function(link_run_time_in target)
  if(NOT RUNLET_LINKS_RUN_TIME_IN)
    return()
  endif()
  target_link_options(${target} PRIVATE
    # clang++ asks for the mathematical library as well, which nothing needs
    $<${hardened}:-static-libstdc++;-static-libgcc;LINKER:--gc-sections;LINKER:--as-needed>)
endfunction()
