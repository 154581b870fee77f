# What `cmake --install` and `cpack` install: the bench's tools and the service for stock Linux, as components; or in a
# build for a unit the service's library.
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
  set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME bench)
  set(package engineering-bench)
  install(TARGETS engineering-service engineering-station engineering-line engineering-hmi headunitctl)
  install(FILES ipc/com.zent.linux.engineering.xml line/com.zent.linux.line.xml platform/bench/com.zent.linux.headunit.xml
    DESTINATION share/dbus-1/interfaces)
  install(DIRECTORY docs/ DESTINATION share/doc/${package} FILES_MATCHING PATTERN *.md PATTERN protocol.md EXCLUDE)
  install(FILES README.md ${CMAKE_BINARY_DIR}/share/doc/protocol.md DESTINATION share/doc/${package})
  install(DIRECTORY share/plans share/scripts ${CMAKE_BINARY_DIR}/share/wireshark DESTINATION share/engineering
    USE_SOURCE_PERMISSIONS)
  install(FILES share/bench.toml DESTINATION share/engineering)
  # Only a package needs them.
  find_program(HELP2MAN help2man)
  if(HELP2MAN)
    include(cmake/Manuals.cmake)
  endif()

  # The service for a unit with stock Linux.
  set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME unit)
  set(private lib/engineering-unit)
  set_target_properties(engineering-unit engineering-hmi PROPERTIES INSTALL_RPATH $ORIGIN/../${private})
  install(TARGETS engineering-unit)
  # The bench's package has this program in bin, where it finds the library of libzlog1.
  install(TARGETS engineering-hmi DESTINATION libexec)
  # Debian 12 has no zlog.
  file(REAL_PATH ${ZLOG_LIBRARY} zlog)
  install(FILES ${zlog} DESTINATION ${private} RENAME libzlog.so.1)
  foreach(library libzlog1 libfmt-dev libtomlplusplus-dev libcli11-dev nlohmann-json3-dev)
    install(FILES /usr/share/doc/${library}/copyright DESTINATION share/doc/engineering-unit/licences RENAME ${library}
      OPTIONAL)
  endforeach()
  install(FILES packaging/unit.toml DESTINATION /etc/engineering)
  install(FILES packaging/engineering-unit.service packaging/engineering-bus.service
    packaging/engineering-hmi-unit.service DESTINATION lib/systemd/system)
  install(FILES packaging/bus.conf DESTINATION share/engineering-unit)
  foreach(file system-bus.conf:share/dbus-1/system.d/engineering-unit.conf sysusers.conf:lib/sysusers.d/engineering-unit.conf
          polkit.rules:share/polkit-1/rules.d/engineering-unit.rules udev.rules:lib/udev/rules.d/70-engineering-unit.rules)
    string(REGEX MATCH "^(.*):(.*)/(.*)$" all ${file})
    install(FILES packaging/${CMAKE_MATCH_1} DESTINATION ${CMAKE_MATCH_2} RENAME ${CMAKE_MATCH_3})
  endforeach()
  install(FILES docs/linux.md docs/dbus.md docs/identity-files.md docs/security.md ipc/com.zent.linux.engineering.xml
    platform/linux/com.zent.linux.unit.xml packaging/10-wlan0.link DESTINATION share/doc/engineering-unit)

  set(CPACK_COMPONENTS_ALL bench unit)
  set(CPACK_DEB_COMPONENT_INSTALL ON)
  set(CPACK_DEBIAN_BENCH_PACKAGE_NAME ${package})
  set(CPACK_COMPONENT_BENCH_DESCRIPTION
    "engineering service of a car head unit, on the bench\n\
The service over a simulated head unit, a test station, a stand-in for the\n\
HMI, a line that fails on purpose, and a tool that shows and changes the\n\
simulated unit.")
  set(CPACK_DEBIAN_BENCH_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_BENCH_PACKAGE_RECOMMENDS dbus)
  set(CPACK_DEBIAN_UNIT_PACKAGE_NAME engineering-unit)
  set(CPACK_COMPONENT_UNIT_DESCRIPTION
    "engineering service of a car head unit, on stock Linux\n\
The service over the daemons and devices of a board with stock Linux. Name\n\
the board's UART in /etc/engineering/unit.toml and enable engineering-unit.")
  set(CPACK_DEBIAN_UNIT_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_UNIT_PACKAGE_DEPENDS "systemd, dbus, dbus-daemon")
  set(CPACK_DEBIAN_UNIT_PACKAGE_RECOMMENDS "polkitd, bluez, ofono, gpsd, network-manager, wpasupplicant, dnsmasq-base, rauc-service")
  file(WRITE ${CMAKE_BINARY_DIR}/conffiles "/etc/engineering/unit.toml\n")
  set(scripts ${PROJECT_SOURCE_DIR}/packaging)
  set(CPACK_DEBIAN_UNIT_PACKAGE_CONTROL_EXTRA
    ${CMAKE_BINARY_DIR}/conffiles ${scripts}/postinst ${scripts}/prerm ${scripts}/postrm)
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
