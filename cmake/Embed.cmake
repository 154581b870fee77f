# embed(TARGET NAMESPACE FILE...): adds `NAMESPACE::kFiles`, the FILEs with their names and contents, to TARGET, which
# includes "EmbeddedFiles.h". A changed file is taken at the next build.
function(embed target namespace)
  set(out ${CMAKE_CURRENT_BINARY_DIR}/embedded)
  set(rows)
  set(arrays)
  set(number 0)
  foreach(file ${ARGN})
    file(READ ${file} bytes HEX)
    string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
    get_filename_component(name ${file} NAME)
    string(APPEND arrays "inline constexpr unsigned char kFile${number}[]{${bytes}};\n")
    string(APPEND rows "    File{\"${name}\", {reinterpret_cast<const char*>(kFile${number}), sizeof kFile${number}}},\n")
    math(EXPR number "${number} + 1")
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${file})
  endforeach()
  file(CONFIGURE OUTPUT ${out}/EmbeddedFiles.h CONTENT
"#pragma once
#include <string_view>
namespace ${namespace} {
struct File {
    std::string_view name;
    std::string_view content;
};
${arrays}inline const File kFiles[]{
${rows}};
}
")
  target_include_directories(${target} PRIVATE ${out})
endfunction()
