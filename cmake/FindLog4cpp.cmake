# log4cpp ships no CMake package: its headers and library make the imported target log4cpp::log4cpp.
if(NOT TARGET log4cpp::log4cpp)
    find_path(LOG4CPP_INCLUDE_DIR log4cpp/Category.hh REQUIRED)
    find_library(LOG4CPP_LIBRARY log4cpp REQUIRED)
    add_library(log4cpp::log4cpp UNKNOWN IMPORTED)
    set_target_properties(log4cpp::log4cpp PROPERTIES
        IMPORTED_LOCATION "${LOG4CPP_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LOG4CPP_INCLUDE_DIR}"
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${LOG4CPP_INCLUDE_DIR}")
endif()
