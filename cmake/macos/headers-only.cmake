# For the preset macos-tools: the libraries that a Mac brings are known by their headers, which are the same everywhere.
# What is compiled with them cannot be linked here.
set(zelor_libraries "CURL CURL::libcurl" "LibArchive LibArchive::LibArchive" "OpenSSL OpenSSL::Crypto" "CLI11 CLI11::CLI11"
    "pugixml pugixml::pugixml" "yaml-cpp yaml-cpp" "nlohmann_json nlohmann_json::nlohmann_json" "GTest GTest::gtest GTest::gmock GTest::gtest_main GTest::gmock_main")
foreach(library ${zelor_libraries})
    separate_arguments(library)
    list(POP_FRONT library name)
    set(config "set(${name}_FOUND TRUE)\n")
    foreach(target ${library})
        string(APPEND config "if(NOT TARGET ${target})\n    add_library(${target} INTERFACE IMPORTED)\nendif()\n")
    endforeach()
    string(TOLOWER ${name} file)
    file(WRITE ${CMAKE_FIND_PACKAGE_REDIRECTS_DIR}/${file}-config.cmake "${config}")
endforeach()
set(MICROHTTPD_LIBRARY "" CACHE STRING "Left open")
# The programs that tests run are not linked either, so nothing waits for them.
function(add_dependencies)
endfunction()
