# The service as a head unit takes it: one shared library over the platform's interfaces. What the platform has to
# define stays undefined in it, and is bound when the library is loaded.
set(version_script ${CMAKE_CURRENT_SOURCE_DIR}/libengineering.map)

add_library(libengineering SHARED)
foreach(part IN ITEMS engineering engineering_uartmgr engineering_autotest engineering_base protocol ipc)
  target_sources(libengineering PRIVATE $<TARGET_OBJECTS:${part}>)
endforeach()
set_target_properties(libengineering PROPERTIES PREFIX "" LINKER_LANGUAGE CXX LINK_DEPENDS ${version_script})
target_link_libraries(libengineering PUBLIC platform_include PRIVATE PkgConfig::gio)
target_link_options(libengineering PRIVATE
  LINKER:--version-script=${version_script} LINKER:--no-undefined-version
  LINKER:--gc-sections
  LINKER:--as-needed
  # A platform function that is missing shows when the unit starts, not when a station first sends a command that
  # needs it; and the addresses are read-only from then on.
  LINKER:-z,relro,-z,now)

# How large the library is: its sections, and the file on a unit, which is stripped.
string(REGEX REPLACE "nm$" "size" size_tool ${CMAKE_NM})
set(stripped ${CMAKE_CURRENT_BINARY_DIR}/stripped/libengineering.so)
add_custom_target(size
  COMMAND ${size_tool} --format=sysv $<TARGET_FILE:libengineering>
  COMMAND ${CMAKE_COMMAND} -E make_directory ${CMAKE_CURRENT_BINARY_DIR}/stripped
  COMMAND ${CMAKE_STRIP} -o ${stripped} $<TARGET_FILE:libengineering>
  COMMAND stat "--format=libengineering.so: %s bytes stripped" ${stripped}
  VERBATIM)
