# Packages made by cpack: a Debian package and a tarball. scripts/package runs it.
set(CPACK_PACKAGE_VENDOR "Runlet adapter maintainers")
set(CPACK_PACKAGE_CONTACT "${CPACK_PACKAGE_VENDOR} <maintainers@runlet.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "adapter for the command-line jobs of a render farm")
set(CPACK_STRIP_FILES ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/FinishPackage.cmake)
# Independent of the umask of the packager.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)

set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SUGGESTS slurm-client)
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"UserRunletAdapter is started by a render farm's server once for every request.
It expands the command lines of a job's tasks, switches to the job's group,
user and umask, runs the program, and reports its process id and any abnormal
exit code to the server.

runlet-job makes job files, shows what their tasks will run, and finds mistakes
in them before they get to the farm. It also runs them where there is no farm
server: on a Slurm cluster or on one machine.")

install(FILES packaging/copyright LICENSE CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

include(CPack)
