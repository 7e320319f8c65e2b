# log4cpp ships no CMake package: its headers and library make the imported target log4cpp::log4cpp.
# With ZELOR_LOG4CPP_AT_LOAD its headers suffice: the process that loads the library brings log4cpp itself.
if(NOT TARGET log4cpp::log4cpp)
    find_path(LOG4CPP_INCLUDE_DIR log4cpp/Category.hh REQUIRED)
endif()
if(NOT TARGET log4cpp::log4cpp AND ZELOR_LOG4CPP_AT_LOAD)
    add_library(log4cpp::log4cpp INTERFACE IMPORTED)
    set_target_properties(log4cpp::log4cpp PROPERTIES INTERFACE_INCLUDE_DIRECTORIES "${LOG4CPP_INCLUDE_DIR}")
endif()
if(NOT TARGET log4cpp::log4cpp)
    find_library(LOG4CPP_LIBRARY log4cpp REQUIRED)
    add_library(log4cpp::log4cpp UNKNOWN IMPORTED)
    set_target_properties(log4cpp::log4cpp PROPERTIES
        IMPORTED_LOCATION "${LOG4CPP_LIBRARY}"
        INTERFACE_INCLUDE_DIRECTORIES "${LOG4CPP_INCLUDE_DIR}"
        INTERFACE_SYSTEM_INCLUDE_DIRECTORIES "${LOG4CPP_INCLUDE_DIR}")
endif()
