# Settings that every target of this project shares; nothing here is installed.
set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)

find_program(ZELOR_CCACHE ccache)
set(ZELOR_PLAIN_LAUNCHER "")  # for projects that tests configure
if(ZELOR_CCACHE)
    set(ZELOR_PLAIN_LAUNCHER ${ZELOR_CCACHE})
endif()
if(ZELOR_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    # Without this ccache leaves everything alone that uses a precompiled header.
    set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_SLOPPINESS=pch_defines,time_macros ${ZELOR_CCACHE})
endif()

add_library(zelor_build INTERFACE)
# Internal headers are included by their path from the top.
target_include_directories(zelor_build INTERFACE ${PROJECT_SOURCE_DIR})
target_compile_options(zelor_build INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual -Wold-style-cast
    $<$<CXX_COMPILER_ID:Clang,AppleClang>:-Wthread-safety> -Werror -fno-omit-frame-pointer)
if(CMAKE_UNITY_BUILD AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # It takes a class that a header declares and a source defines for one of the header.
    target_compile_options(zelor_build INTERFACE -Wno-subobject-linkage)
endif()
if(ZELOR_SANITIZE)
    target_compile_options(zelor_build INTERFACE -fsanitize=${ZELOR_SANITIZE} -fno-sanitize-recover=all)
    if(ZELOR_SANITIZE MATCHES undefined)
        # Compiling for it takes longest; tests do without.
        target_compile_options(zelor_build INTERFACE
            $<$<STREQUAL:$<TARGET_PROPERTY:FOLDER>,tests>:-fno-sanitize=undefined>)
    endif()
    target_link_options(zelor_build INTERFACE -fsanitize=${ZELOR_SANITIZE})
else()
    include(cmake/ZelorHardening.cmake)
endif()
if(ZELOR_COVERAGE)
    target_compile_options(zelor_build INTERFACE --coverage -fprofile-update=atomic)
    target_link_options(zelor_build INTERFACE --coverage)
endif()

# What an embedder includes: include/ and the generated headers here, one directory of headers once installed.
configure_file(cmake/Version.h.in ${PROJECT_BINARY_DIR}/include/remediation/Version.h @ONLY)
function(zelor_public_headers target)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
        $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/zelor>)
endfunction()

# A shared library shows the symbols that cmake/<name>.map lists, on macOS cmake/macos/<name>.exports; templates of the
# standard library and of Boost, which the compiler leaves visible, are hidden with it.
function(zelor_shared_library target name)
    set_target_properties(${target} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
    if(APPLE)
        set(exports ${PROJECT_SOURCE_DIR}/cmake/macos/${name}.exports)
        set_target_properties(${target} PROPERTIES INSTALL_NAME_DIR @rpath BUILD_WITH_INSTALL_NAME_DIR ON
            INSTALL_RPATH @loader_path LINK_DEPENDS "${exports};${ZELOR_LINK_STUBS}")
        # The agent brings the collaborators, at load.
        target_link_options(${target} PRIVATE -undefined dynamic_lookup LINKER:-exported_symbols_list,${exports})
    else()
        set_target_properties(${target} PROPERTIES INSTALL_RPATH $ORIGIN
            LINK_DEPENDS ${PROJECT_SOURCE_DIR}/cmake/${name}.map)
        target_link_options(${target} PRIVATE -Wl,--version-script=${PROJECT_SOURCE_DIR}/cmake/${name}.map)
    endif()
endfunction()

# A layer below the remediation library: a static library of its own or, in a shared build, objects for that library.
# Sets <name>_target to what the calling directory configures further.
function(zelor_library_part name)
    if(BUILD_SHARED_LIBS)
        set(target ${name}_objects)
        add_library(${target} OBJECT ${ARGN})
    else()
        set(target ${name})
        add_library(${target} STATIC ${ARGN})
        string(REPLACE zelor_ "" export_name ${name})
        add_library(Zelor::${export_name} ALIAS ${name})
        set_target_properties(${name} PROPERTIES EXPORT_NAME ${export_name})
    endif()
    zelor_public_headers(${target})
    target_link_libraries(${target} PUBLIC zelor_base PRIVATE $<BUILD_INTERFACE:zelor_build>)
    set(${name}_target ${target} PARENT_SCOPE)
endfunction()

# Precompiled headers: what nearly every source of a group includes. GCC only; a build without them, which the Mac's
# is, finds the includes that are missing.
set(zelor_precompile_default OFF)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND NOT BUILD_SHARED_LIBS)
    set(zelor_precompile_default ON)
endif()
option(ZELOR_PRECOMPILE "Precompile the headers that most sources share" ${zelor_precompile_default})
function(zelor_precompile target)
    if(ZELOR_PRECOMPILE)
        target_precompile_headers(${target} ${ARGN})
        target_compile_options(${target} PRIVATE -fpch-preprocess)  # ccache needs it
    endif()
endfunction()
