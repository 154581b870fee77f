# What the toolchain files share: Debian's cross compiler, its libraries of the other architecture beside the native
# ones, and qemu's user emulation to run what was built. The includer sets the names that the architecture has there.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# Finds libraries and package files of the triplet before those that hold for every architecture.
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(PKG_CONFIG_EXECUTABLE ${triplet}-pkg-config)

find_program(ENGINEERING_QEMU ${qemu} DOC "User emulation of the target; tests need it, a build does not")
if(ENGINEERING_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ENGINEERING_QEMU})
endif()
