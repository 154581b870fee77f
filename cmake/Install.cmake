# What `cmake --install` and `cpack` install: the bench's tools, or in a build for a unit the service's library.
if(CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Where libraries go: Debian's folder")
endif()
include(GNUInstallDirs)

# `cpack` and `cmake --install` use what has been built; otherwise they would build the tests, too.
set(CMAKE_SKIP_INSTALL_ALL_DEPENDENCY ON)

if(ENGINEERING_UNIT)
  set(package libengineering)
  install(TARGETS libengineering LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(DIRECTORY platform/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/engineering FILES_MATCHING PATTERN *.h)
  install(FILES docs/target.md docs/dbus.md docs/identity-files.md ipc/com.zent.linux.engineering.xml
    DESTINATION share/doc/${package})
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "engineering service of a car head unit, for the unit")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "The service as one shared library, which the platform's service framework\n\
loads, and the headers of the functions that the platform defines.")
  set(CPACK_DEBIAN_PACKAGE_SECTION libs)
  file(WRITE ${CMAKE_BINARY_DIR}/triggers "activate-noawait ldconfig\n")
  set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${CMAKE_BINARY_DIR}/triggers)
else()
  set(package engineering-bench)
  install(TARGETS engineering-service engineering-station engineering-hmi headunitctl)
  install(FILES ipc/com.zent.linux.engineering.xml platform/bench/com.zent.linux.headunit.xml
    DESTINATION share/dbus-1/interfaces)
  install(DIRECTORY docs/ DESTINATION share/doc/${package} FILES_MATCHING PATTERN *.md PATTERN protocol.md EXCLUDE)
  install(FILES README.md ${CMAKE_BINARY_DIR}/share/doc/protocol.md DESTINATION share/doc/${package})
  install(DIRECTORY share/plans ${CMAKE_BINARY_DIR}/share/wireshark DESTINATION share/engineering)
  # Only a package needs them.
  find_program(HELP2MAN help2man)
  if(HELP2MAN)
    include(cmake/Manuals.cmake)
  endif()
  set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "engineering service of a car head unit, on the bench")
  set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "The service over a simulated head unit, a test station, a stand-in for the\n\
HMI, and a tool that shows and changes the simulated unit.")
  set(CPACK_DEBIAN_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_PACKAGE_RECOMMENDS dbus)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ${package})
set(ENGINEERING_MAINTAINER "Engineering service maintainers <engineering@example.com>" CACHE STRING
  "Maintainer of the package: name and address")
set(CPACK_PACKAGE_CONTACT "${ENGINEERING_MAINTAINER}")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
if(CMAKE_CROSSCOMPILING)
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${ENGINEERING_DEBIAN_ARCHITECTURE})
endif()
include(CPack)
