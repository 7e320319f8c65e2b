# Builds on Linux for x86-64 Macs, 10.13 and later, with what cmake/macos/prepare has fetched.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_VERSION 17)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

get_filename_component(ZELOR_MACOS_DEPS ${CMAKE_CURRENT_LIST_DIR}/../../build/macos/deps ABSOLUTE)
if(NOT EXISTS ${ZELOR_MACOS_DEPS}/bin/zig-c++)
    message(FATAL_ERROR "The cross compiler is missing; cmake/macos/prepare fetches it.")
endif()
set(CMAKE_C_COMPILER ${ZELOR_MACOS_DEPS}/bin/zig-cc)
set(CMAKE_CXX_COMPILER ${ZELOR_MACOS_DEPS}/bin/zig-c++)
set(CMAKE_CXX_COMPILER_LAUNCHER "")
set(ZELOR_CCACHE OFF)  # the compiler keeps a cache of its own
find_program(CMAKE_AR llvm-ar REQUIRED)
find_program(CMAKE_RANLIB llvm-ranlib REQUIRED)
set(CMAKE_LINKER ${ZELOR_MACOS_DEPS}/bin/ld64.lld)
set(CMAKE_INSTALL_NAME_TOOL ${ZELOR_MACOS_DEPS}/bin/install_name_tool)
set(CMAKE_CXX_ABI_COMPILED TRUE)  # the question is asked with words for the linker, which this compiler refuses
set(CMAKE_CXX_SIZEOF_DATA_PTR 8)
set(CMAKE_SIZEOF_VOID_P 8)
set(CMAKE_OSX_SYSROOT "")
set(CMAKE_OSX_DEPLOYMENT_TARGET "")
set(CMAKE_OSX_ARCHITECTURES "")
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

# - Boost 1.74 derives from std::unary_function, which C++17 removed.
# - The vendor's availability marks turn a name that the oldest target lacks into an error.
set(CMAKE_CXX_FLAGS_INIT "-D_LIBCPP_ENABLE_CXX17_REMOVED_UNARY_BINARY_FUNCTION \
-U_LIBCPP_HAS_NO_VENDOR_AVAILABILITY_ANNOTATIONS -Wunguarded-availability")
set(ZELOR_LINK_STUBS ${CMAKE_CURRENT_LIST_DIR}/libc++.tbd)
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX ${CMAKE_CURRENT_LIST_DIR}/linking.cmake)

# Libraries and headers come from the fetched ones alone.
set(CMAKE_FIND_ROOT_PATH ${ZELOR_MACOS_DEPS})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_PACKAGE_PREFER_CONFIG ON)
set(Boost_DIR ${CMAKE_CURRENT_LIST_DIR}/boost)
include_directories(SYSTEM ${CMAKE_CURRENT_LIST_DIR}/include ${ZELOR_MACOS_DEPS}/include)
