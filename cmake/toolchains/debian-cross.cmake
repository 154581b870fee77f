# Shared by the toolchain files: Debian's cross compiler, the other architecture's libraries beside the native ones, and
# qemu's user emulation to run the programs. The including file sets the names of the architecture.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)
# CMake looks for libraries and package files of the triplet first.
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(PKG_CONFIG_EXECUTABLE ${triplet}-pkg-config)

find_program(ENGINEERING_QEMU ${qemu} DOC "User emulation of the target; tests need it, a build does not")
if(ENGINEERING_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${ENGINEERING_QEMU})
endif()
