# The codec by name: encode, decode and look up against any table of groups.
add_library(catalogue_codec STATIC
  catalogue/Decode.cpp catalogue/Describe.cpp catalogue/Encode.cpp catalogue/Fields.cpp catalogue/Format.cpp
  catalogue/HexBytes.cpp catalogue/Lookup.cpp catalogue/Number.cpp catalogue/Secret.cpp
  catalogue/Suggest.cpp)
target_link_libraries(catalogue_codec PUBLIC protocol)

unit_test(catalogue_codec_test
  SOURCES catalogue/DecodeTest.cpp catalogue/EncodeTest.cpp catalogue/FormatTest.cpp catalogue/HexBytesTest.cpp
          catalogue/LookupTest.cpp catalogue/SuggestTest.cpp
  LIBRARIES catalogue_codec)
# The sample table leaves out what it has nothing to say on.
target_compile_options(catalogue_codec_test PRIVATE -Wno-missing-field-initializers)
