# The linker is called directly: the compiler would bind its own copy of the C++ library where the system has one.
set(CMAKE_CXX_LINKER_WRAPPER_FLAG "")
set(CMAKE_CXX_COMPILE_OPTIONS_PIE -fPIC)  # the compiler takes position-independent executables for granted
set(zelor_link "<CMAKE_LINKER> -arch x86_64 -platform_version macos 10.13 10.13 -dead_strip <LINK_FLAGS> -o <TARGET>")
set(zelor_system "-L${CMAKE_CURRENT_LIST_DIR} -lc++ -L${ZELOR_MACOS_DEPS}/lib -lSystem")
set(CMAKE_CXX_CREATE_SHARED_LIBRARY
    "${zelor_link} -dylib -install_name <TARGET_INSTALLNAME_DIR><TARGET_SONAME> <OBJECTS> <LINK_LIBRARIES> ${zelor_system}")
set(CMAKE_CXX_LINK_EXECUTABLE "${zelor_link} <OBJECTS> <LINK_LIBRARIES> ${zelor_system}")
