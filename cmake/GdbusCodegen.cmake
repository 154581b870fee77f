# gdbus_codegen(TARGET XML NAME): a library of the glue that gdbus-codegen generates from XML, in NAME.h and NAME.c.
# Function names keep the whole interface name: com.example.Thing gives com_example_thing_...
find_program(GDBUS_CODEGEN gdbus-codegen REQUIRED)

function(gdbus_codegen target xml name)
  set(xml ${CMAKE_CURRENT_SOURCE_DIR}/${xml})
  set(out ${CMAKE_CURRENT_BINARY_DIR}/generated)
  file(MAKE_DIRECTORY ${out})
  add_custom_command(
    OUTPUT ${out}/${name}.h
    COMMAND ${GDBUS_CODEGEN} --header --output ${out}/${name}.h ${xml}
    DEPENDS ${xml} VERBATIM)
  add_custom_command(
    OUTPUT ${out}/${name}.c
    COMMAND ${GDBUS_CODEGEN} --body --output ${out}/${name}.c ${xml}
    DEPENDS ${xml} ${out}/${name}.h VERBATIM)
  add_library(${target} STATIC ${out}/${name}.c ${out}/${name}.h)
  target_include_directories(${target} SYSTEM PUBLIC ${out})
  target_link_libraries(${target} PUBLIC PkgConfig::gio)
endfunction()
