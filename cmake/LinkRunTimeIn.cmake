# Released programs link the C++ run-time library statically. Loading and relocating libstdc++ would
# take more than half of the adapter's start-up time, and the farm starts it for every request.
#
# The C library stays shared on purpose: it accesses the user database through name service modules
# (LDAP, SSSD and others), which are shared libraries. A program with a static C library cannot load
# those reliably, and the adapter looks up users.
include(CheckLinkerFlag)

# Some distributions package the static libraries separately. A shared TinyXML would load the shared
# libstdc++, and there must not be two of them.
check_linker_flag(CXX "-static-libstdc++;-static-libgcc" RUNLET_HAS_STATIC_RUN_TIME)
if(RUNLET_HAS_STATIC_RUN_TIME AND TinyXML_STATIC_LIBRARY)
  set(RUNLET_LINKS_RUN_TIME_IN ON)
endif()

# link_run_time_in(TARGET): in release builds, if the static libraries exist.
function(link_run_time_in target)
  if(NOT RUNLET_LINKS_RUN_TIME_IN)
    return()
  endif()
  target_link_options(${target} PRIVATE
    # clang++ also links the unneeded math library
    $<${hardened}:-static-libstdc++;-static-libgcc;LINKER:--gc-sections;LINKER:--as-needed>)
endfunction()
