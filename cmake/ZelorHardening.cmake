# What the code is compiled and linked with because it runs as root on hostile input: canaries on the stack, checked
# copies, position-independent programs, and relocations that are read-only once a program has started.
include(CheckCXXCompilerFlag)
include(CheckCXXSourceCompiles)
include(CheckPIESupported)

check_pie_supported()
# Unoptimised builds are for developing; checked copies do not work there.
set(zelor_optimised $<CONFIG:Release,RelWithDebInfo,MinSizeRel>)

foreach(flag -fstack-protector-strong -fstack-clash-protection -fcf-protection)
    string(MAKE_C_IDENTIFIER "ZELOR_HAS${flag}" has_flag)
    set(CMAKE_REQUIRED_FLAGS -Werror)
    check_cxx_compiler_flag(${flag} ${has_flag})
    unset(CMAKE_REQUIRED_FLAGS)
    if(${has_flag})
        target_compile_options(zelor_build INTERFACE $<${zelor_optimised}:${flag}>)
    endif()
endforeach()

# An older C library knows level 2 only.
set(CMAKE_REQUIRED_FLAGS "-O2 -Werror -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3")
check_cxx_source_compiles("#include <cstring>\nint main() { return static_cast<int>(std::strlen(\"\")); }"
    ZELOR_HAS_FORTIFY_3)
unset(CMAKE_REQUIRED_FLAGS)
set(zelor_fortify 2)
if(ZELOR_HAS_FORTIFY_3)
    set(zelor_fortify 3)
endif()
target_compile_options(zelor_build INTERFACE
    $<${zelor_optimised}:-U_FORTIFY_SOURCE> $<${zelor_optimised}:-D_FORTIFY_SOURCE=${zelor_fortify}>)

if(CMAKE_SYSTEM_NAME STREQUAL Linux)
    target_link_options(zelor_build INTERFACE LINKER:-z,relro LINKER:-z,now LINKER:-z,noexecstack)
endif()
