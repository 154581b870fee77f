# The catalogue's file: read, checked, and made into the table that is compiled in, the protocol's page and the
# Wireshark dissector.
find_package(tomlplusplus REQUIRED)

add_library(catalogue_loader STATIC catalogue/Document.cpp toml/TableReader.cpp)
target_link_libraries(catalogue_loader PUBLIC catalogue_codec tomlplusplus::tomlplusplus)

add_library(catalogue_writers STATIC
  catalogue/generator/CppWriter.cpp catalogue/generator/LuaWriter.cpp catalogue/generator/MarkdownWriter.cpp)
target_link_libraries(catalogue_writers PUBLIC catalogue_codec)

add_executable(catalogue-generator catalogue/generator/main.cpp)
target_link_libraries(catalogue-generator PRIVATE catalogue_loader catalogue_writers PkgConfig::gio)

set(catalogue_file ${CMAKE_CURRENT_SOURCE_DIR}/catalogue.toml)
set(catalogue_table ${CMAKE_CURRENT_BINARY_DIR}/CatalogueTable.cpp)
add_custom_command(
  OUTPUT ${catalogue_table}
  COMMAND catalogue-generator cpp ${catalogue_file} > ${catalogue_table}
  DEPENDS catalogue-generator ${catalogue_file} VERBATIM)
add_library(catalogue STATIC ${catalogue_table})
target_link_libraries(catalogue PUBLIC catalogue_codec)

unit_test(catalogue_loader_test
  SOURCES catalogue/DocumentTest.cpp catalogue/CatalogueTest.cpp catalogue/GeneratedFilesTest.cpp
  LIBRARIES catalogue_loader catalogue_writers catalogue)
target_compile_definitions(catalogue_loader_test PRIVATE SOURCE_FOLDER="${PROJECT_SOURCE_DIR}")
