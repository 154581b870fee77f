# Compiler options for everything in this repository.
set(ENGINEERING_SANITIZERS "" CACHE STRING "Argument of -fsanitize=; empty for none")

option(ENGINEERING_UNIT "Build for a head unit: the service as libengineering.so, and its tests" OFF)

add_library(project_options INTERFACE)
target_compile_options(project_options INTERFACE
  -Werror
  # Users of GLib get this option from pkg-config. All others need it too, to share precompiled headers.
  -pthread
  # Log lines and assertions name files relative to the repository.
  -ffile-prefix-map=${CMAKE_SOURCE_DIR}/=
  $<$<COMPILE_LANGUAGE:CXX>:-Wall -Wextra -Wpedantic -Wshadow -Wformat=2 -Wcast-qual -Wnon-virtual-dtor
    -Woverloaded-virtual>
  # g++ 12 reports impossible overlaps in std::string's operator+ (its bug 105651). When it optimises, it also reports
  # impossible lengths in std::vector and std::string, and members of empty ones that are never read.
  $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>
  # Files that are compiled as one are not headers: their unnamed namespaces stay their own.
  $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<BOOL:${CMAKE_UNITY_BUILD}>>:-Wno-subobject-linkage>
  $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release,RelWithDebInfo,MinSizeRel>>:-Wno-array-bounds
    -Wno-stringop-overflow -Wno-stringop-overread -Wno-maybe-uninitialized>)

# precompiled_headers(NAME HEADERS ... LIBRARIES ...): compiles slow headers of these libraries once for all targets
# that call precompile(TARGET NAME). Debug builds only: when g++ optimises, it warns about code inlined from a
# precompiled system header as if it were ours.
function(precompiled_headers name)
  if(CMAKE_BUILD_TYPE STREQUAL Debug)
    set(source ${CMAKE_CURRENT_BINARY_DIR}/${name}.cpp)
    file(CONFIGURE OUTPUT ${source} CONTENT "// Carries the precompiled headers.\n")
    cmake_parse_arguments(arg "" "" "HEADERS;LIBRARIES" ${ARGN})
    add_library(${name} OBJECT ${source})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES})
    target_precompile_headers(${name} PRIVATE ${arg_HEADERS})
  endif()
endfunction()
function(precompile target headers)
  if(TARGET ${headers})
    target_precompile_headers(${target} REUSE_FROM ${headers})
  endif()
endfunction()

if(ENGINEERING_SANITIZERS)
  add_compile_options(-fsanitize=${ENGINEERING_SANITIZERS} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${ENGINEERING_SANITIZERS})
endif()
link_libraries(project_options)

if(ENGINEERING_UNIT)
  set(CMAKE_POSITION_INDEPENDENT_CODE ON)
  # The linker drops unused functions and data: the library links all parts of the service whole.
  add_compile_options(-ffunction-sections -fdata-sections)
endif()
