# build_flags: how every target here is compiled and linked. The library carries it to the others.
add_library(build_flags INTERFACE)

target_compile_options(build_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
if(MORVANE_WARNINGS_ARE_ERRORS)
  target_compile_options(build_flags INTERFACE -Werror)
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # GCC 12 sees an overlap in the library's own string concatenation (GCC bug 105651).
  target_compile_options(build_flags INTERFACE -Wno-restrict)
endif()

if(MORVANE_RELEASE)
  set_target_properties(build_flags PROPERTIES INTERFACE_POSITION_INDEPENDENT_CODE ON)
  target_compile_options(build_flags INTERFACE
    -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=.")
  if(CMAKE_CXX_COMPILER_ID STREQUAL "AppleClang")
    target_link_options(build_flags INTERFACE -Wl,-S -Wl,-x)
  elseif(NOT APPLE)
    # Start-up is mostly dynamic linking; a static program has none.
    target_link_options(build_flags INTERFACE
      -static-pie -Wl,-z,relro -Wl,-z,now -Wl,-z,noexecstack -s)
  endif()
endif()
