# Settings that every target of this project shares; nothing here is installed.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

find_program(ZELOR_CCACHE ccache)
if(ZELOR_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER ${ZELOR_CCACHE})
endif()

add_library(zelor_build INTERFACE)
target_compile_options(zelor_build INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    -Werror -fno-omit-frame-pointer)
if(ZELOR_SANITIZE)
    target_compile_options(zelor_build INTERFACE -fsanitize=${ZELOR_SANITIZE} -fno-sanitize-recover=all)
    target_link_options(zelor_build INTERFACE -fsanitize=${ZELOR_SANITIZE})
endif()
