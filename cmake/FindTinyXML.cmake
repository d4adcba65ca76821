# Finds TinyXML 2.6 and defines the target TinyXML::TinyXML: through pkg-config if that knows the
# library, otherwise by searching for the header and the library file. A static library is
# preferred: loading another shared one would be a considerable part of the adapter's start-up time.

find_package(PkgConfig QUIET)
if(PkgConfig_FOUND)
  pkg_check_modules(PC_TINYXML QUIET tinyxml)
endif()

find_path(TinyXML_INCLUDE_DIR tinyxml.h HINTS ${PC_TINYXML_INCLUDE_DIRS})
find_library(TinyXML_STATIC_LIBRARY libtinyxml.a HINTS ${PC_TINYXML_LIBRARY_DIRS})
find_library(TinyXML_SHARED_LIBRARY tinyxml HINTS ${PC_TINYXML_LIBRARY_DIRS})
if(TinyXML_STATIC_LIBRARY)
  set(TinyXML_LIBRARY ${TinyXML_STATIC_LIBRARY})
else()
  set(TinyXML_LIBRARY ${TinyXML_SHARED_LIBRARY})
endif()

if(TinyXML_INCLUDE_DIR)
  file(STRINGS ${TinyXML_INCLUDE_DIR}/tinyxml.h version_lines
       REGEX "const int TIXML_(MAJOR|MINOR|PATCH)_VERSION")
  string(REGEX MATCHALL "[0-9]+" version_numbers "${version_lines}")
  string(REPLACE ";" "." TinyXML_VERSION "${version_numbers}")
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(TinyXML
  REQUIRED_VARS TinyXML_LIBRARY TinyXML_INCLUDE_DIR VERSION_VAR TinyXML_VERSION)

if(TinyXML_FOUND AND NOT TARGET TinyXML::TinyXML)
  add_library(TinyXML::TinyXML UNKNOWN IMPORTED)
  set_target_properties(TinyXML::TinyXML PROPERTIES
    IMPORTED_LOCATION "${TinyXML_LIBRARY}"
    INTERFACE_INCLUDE_DIRECTORIES "${TinyXML_INCLUDE_DIR}"
    INTERFACE_COMPILE_OPTIONS "${PC_TINYXML_CFLAGS_OTHER}")
endif()
mark_as_advanced(TinyXML_INCLUDE_DIR TinyXML_STATIC_LIBRARY TinyXML_SHARED_LIBRARY)
