# What `cmake --install` puts where, the packages, and what find_package and pkg-config find. Programs are installed
# where they are built.
include(CMakePackageConfigHelpers)

set(zelor_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZelorRemediation)
set(zelor_include_dir ${CMAKE_INSTALL_INCLUDEDIR}/zelor)

set(zelor_libraries zelor_remediation)
if(NOT BUILD_SHARED_LIBS)
    list(APPEND zelor_libraries zelor_platform zelor_records zelor_base)
endif()
install(TARGETS ${zelor_libraries} EXPORT ZelorRemediationTargets)
install(EXPORT ZelorRemediationTargets NAMESPACE Zelor:: DESTINATION ${zelor_cmake_dir})

install(DIRECTORY include/ DESTINATION ${zelor_include_dir} FILES_MATCHING PATTERN "*.h" PATTERN agent EXCLUDE)
install(FILES ${PROJECT_BINARY_DIR}/include/remediation/Version.h DESTINATION ${zelor_include_dir}/remediation)

if(ZELOR_BUILD_AGENT)
    set(zelor_agent_libraries zelor_agent)
    if(NOT BUILD_SHARED_LIBS)
        list(APPEND zelor_agent_libraries zelor_trust)
    endif()
    install(TARGETS ${zelor_agent_libraries} EXPORT ZelorRemediationAgentTargets)
    install(EXPORT ZelorRemediationAgentTargets NAMESPACE Zelor:: DESTINATION ${zelor_cmake_dir})
    install(DIRECTORY include/agent DESTINATION ${zelor_include_dir})
endif()

configure_package_config_file(cmake/ZelorRemediationConfig.cmake.in ZelorRemediationConfig.cmake
    INSTALL_DESTINATION ${zelor_cmake_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(ZelorRemediationConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ZelorRemediationConfig.cmake
    ${PROJECT_BINARY_DIR}/ZelorRemediationConfigVersion.cmake
    cmake/FindLog4cpp.cmake
    DESTINATION ${zelor_cmake_dir})

if(BUILD_SHARED_LIBS)
    set(zelor_pc_records "")
    set(zelor_pc_agent_base "")
    set(zelor_pc_agent_requires "")
else()
    set(zelor_pc_records "-lzelor_platform -lzelor_records -lzelor_base")
    set(zelor_pc_agent_base "-lzelor_trust -lzelor_records -lzelor_base")
    set(zelor_pc_agent_requires "libcurl libarchive libcrypto pugixml")
endif()
file(RELATIVE_PATH zelor_pc_up /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(name zelor-remediation zelor-agent)
    if(name STREQUAL zelor-remediation OR ZELOR_BUILD_AGENT)
        configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/${name}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    endif()
endforeach()

set(zelor_doc_dir ${CMAKE_INSTALL_DATADIR}/doc/zelor-remediation)
install(DIRECTORY docs DESTINATION ${zelor_doc_dir}
    FILES_MATCHING PATTERN "*.md" PATTERN "*.json" PATTERN "*.png" PATTERN "*.svg" PATTERN man EXCLUDE)
foreach(page README.md ARCHITECTURE.md CHANGELOG.md CONTRIBUTING.md SECURITY.md)
    if(EXISTS ${PROJECT_SOURCE_DIR}/${page})
        install(FILES ${page} DESTINATION ${zelor_doc_dir})
    endif()
endforeach()
install(DIRECTORY examples/embed DESTINATION ${zelor_doc_dir}/examples USE_SOURCE_PERMISSIONS)

find_program(ZELOR_DPKG dpkg)
if(ZELOR_BUILD_TOOLS)
    install(DIRECTORY docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 FILES_MATCHING PATTERN "*.1")
    install(DIRECTORY docs/man/ DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 FILES_MATCHING PATTERN "*.5")
    install(DIRECTORY completions/bash/ DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(DIRECTORY completions/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/site-functions)
    if(ZELOR_DPKG)
        # Below /usr, Debian's zsh looks here alone.
        install(DIRECTORY completions/zsh/ DESTINATION ${CMAKE_INSTALL_DATADIR}/zsh/vendor-completions)
    endif()
endif()

set(CPACK_PACKAGE_NAME zelor-remediation)
set(CPACK_PACKAGE_VENDOR "Zelor")
set(CPACK_PACKAGE_CONTACT "Zelor Remediation maintainers")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION "Programs, libraries, headers and documentation of Zelor Remediation.")
set(CPACK_PACKAGE_CHECKSUM SHA256)
set(CPACK_STRIP_FILES ON)
set(CPACK_GENERATOR TGZ)
if(ZELOR_DPKG)
    list(APPEND CPACK_GENERATOR DEB)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS
    "bubblewrap, libboost-thread-dev, libboost-filesystem-dev, libboost-system-dev, liblog4cpp5-dev, libcurl4-openssl-dev, \
libarchive-dev, libssl-dev, libpugixml-dev")
include(CPack)
