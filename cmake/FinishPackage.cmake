# Run by cpack on the folder to be packaged: adjusts what Debian requires to differ from "cmake
# --install".
if(NOT CPACK_GENERATOR STREQUAL "DEB")
  return()
endif()
set(sources ${CMAKE_CURRENT_LIST_DIR}/..)
set(share ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr/share)
set(documents ${share}/doc/${CPACK_PACKAGE_NAME})

# Every Debian system already has the license.
file(REMOVE ${documents}/LICENSE)
file(RENAME ${documents}/CHANGELOG.md ${documents}/changelog)
configure_file(${sources}/packaging/changelog ${documents}/changelog.Debian COPYONLY)
configure_file(${sources}/packaging/lintian-overrides
  ${share}/lintian/overrides/${CPACK_PACKAGE_NAME} COPYONLY)

file(GLOB compressed ${share}/man/man*/* ${documents}/changelog*)
# Without name and time, so that packages are reproducible.
execute_process(COMMAND gzip -9n ${compressed} COMMAND_ERROR_IS_FATAL ANY)
