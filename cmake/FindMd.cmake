# Finds libmd, which computes SHA-256 digests, and defines the target Md::Md. A static library is
# preferred, so that a package does not need another one for a few functions.

find_path(Md_INCLUDE_DIR sha2.h)
find_library(Md_LIBRARY NAMES libmd.a md)

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Md REQUIRED_VARS Md_LIBRARY Md_INCLUDE_DIR)

if(Md_FOUND AND NOT TARGET Md::Md)
  add_library(Md::Md UNKNOWN IMPORTED)
  set_target_properties(Md::Md PROPERTIES
    IMPORTED_LOCATION "${Md_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES "${Md_INCLUDE_DIR}")
endif()
mark_as_advanced(Md_INCLUDE_DIR Md_LIBRARY)
