# The version of the distribution's headers.
file(STRINGS ${CMAKE_CURRENT_LIST_DIR}/../../../build/macos/deps/include/boost/version.hpp zelor_line
    REGEX "define BOOST_LIB_VERSION")
string(REGEX REPLACE ".*\"([0-9]+)_([0-9]+).*" "\\1.\\2" PACKAGE_VERSION "${zelor_line}")
set(PACKAGE_VERSION_COMPATIBLE TRUE)
if(PACKAGE_VERSION VERSION_LESS PACKAGE_FIND_VERSION)
    set(PACKAGE_VERSION_COMPATIBLE FALSE)
endif()
