# What is installed where, and the Debian packages.

# The program loads the module that lies beside it, and both find the base library there: all three share a directory of
# their own, and the directory of programs has a link to it.
set(kvProgramDirectory lib/kvgateway)
set_target_properties(kvgateway PROPERTIES INSTALL_RPATH "$ORIGIN")
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME runtime)
install(TARGETS kvgateway RUNTIME DESTINATION ${kvProgramDirectory})
install(TARGETS kvBase39 kvLogFile EXPORT kvLogFileTargets
    LIBRARY DESTINATION ${kvProgramDirectory}
    FILE_SET HEADERS DESTINATION include/kvLogFile COMPONENT dev)
set(kvProgramLink ${PROJECT_BINARY_DIR}/packaging/kvgateway)
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/packaging)
file(CREATE_LINK ../${kvProgramDirectory}/kvgateway ${kvProgramLink} SYMBOLIC)
install(FILES ${kvProgramLink} DESTINATION bin)

configure_file(packaging/kvgateway.1 packaging/kvgateway.1 @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/kvgateway.1 DESTINATION share/man/man1)
install(FILES packaging/kvgateway.service DESTINATION lib/systemd/system)
file(GLOB kvDocuments CONFIGURE_DEPENDS README.md docs/*.md)
install(FILES ${kvDocuments} DESTINATION share/doc/kvgateway)
install(DIRECTORY examples DESTINATION share/doc/kvgateway USE_SOURCE_PERMISSIONS)

# For those who build a kernel of their own: find_package(kvLogFile), or pkg-config.
include(CMakePackageConfigHelpers)
set(kvPackageDirectory lib/cmake/kvLogFile)
install(EXPORT kvLogFileTargets NAMESPACE kvLogFile:: DESTINATION ${kvPackageDirectory} COMPONENT dev)
configure_package_config_file(packaging/kvLogFileConfig.cmake.in packaging/kvLogFileConfig.cmake
    INSTALL_DESTINATION ${kvPackageDirectory}
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(packaging/kvLogFileConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/packaging/kvLogFileConfig.cmake
    ${PROJECT_BINARY_DIR}/packaging/kvLogFileConfigVersion.cmake
    DESTINATION ${kvPackageDirectory} COMPONENT dev)
configure_file(packaging/kvLogFile.pc.in packaging/kvLogFile.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/packaging/kvLogFile.pc DESTINATION lib/pkgconfig COMPONENT dev)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kvgateway)
set(CPACK_PACKAGE_VENDOR Kavro)
set(CPACK_PACKAGE_CONTACT "Kavro log file service <root@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Log file service: rotating log files from reported events, alarms and snapshots")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME kvgateway)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Writes reports as rows of plain text, comma-separated and HTML files, keeps the\
 files within sizes and numbers, and sends them by e-mail and upload.")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${PROJECT_SOURCE_DIR}/packaging/postinst
    ${PROJECT_SOURCE_DIR}/packaging/prerm
    ${PROJECT_SOURCE_DIR}/packaging/postrm)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS adduser)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS "msmtp-mta | default-mta | mail-transport-agent, curl, rclone")
if(CMAKE_CROSSCOMPILING)
    # The cross compiler's libraries carry no package names of the target.
    set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", libc6 (>= 2.36), libgcc-s1, libstdc++6 (>= 12)")
    if(mime_FOUND)
        string(APPEND CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS ", libglib2.0-0, libgmime-3.0-0")
    endif()
else()
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
endif()

set(CPACK_DEBIAN_DEV_PACKAGE_NAME kvgateway-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "kvgateway (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Headers, a CMake package and a pkg-config file to build a kernel with that loads the\
 log file service.")
include(CPack)
