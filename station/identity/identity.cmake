# The records that tell one unit from another: read, written, verified, and their values given away.
find_library(CSV_LIBRARY csv REQUIRED)
find_path(CSV_INCLUDE_DIR csv.h REQUIRED)
add_library(csv::csv UNKNOWN IMPORTED)
set_target_properties(csv::csv PROPERTIES IMPORTED_LOCATION ${CSV_LIBRARY}
                                          INTERFACE_INCLUDE_DIRECTORIES ${CSV_INCLUDE_DIR})

add_library(station_identity STATIC
  identity/CsvSource.cpp identity/IdentityGuard.cpp identity/JsonLine.cpp identity/Journal.cpp identity/LedgerFile.cpp
  identity/Provision.cpp identity/Record.cpp identity/Registry.cpp identity/Sqlite.cpp identity/UnitIdentity.cpp
  identity/UnitRules.cpp identity/ValueRange.cpp)
pkg_check_modules(sqlite3 REQUIRED IMPORTED_TARGET sqlite3)
pkg_check_modules(re2 REQUIRED IMPORTED_TARGET re2)
target_link_libraries(station_identity
  PUBLIC station catalogue_codec nlohmann_json::nlohmann_json PkgConfig::re2
  PRIVATE csv::csv PkgConfig::sqlite3)
precompile(station_identity program_headers)

unit_test(station_identity_test
  SOURCES identity/CsvSourceTest.cpp identity/JournalTest.cpp identity/RegistryTest.cpp identity/ProvisionTest.cpp
          identity/RecordTest.cpp ../tests/faults/SmallDisk.cpp
  LIBRARIES station_identity catalogue test_support_process util)
