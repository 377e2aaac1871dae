# Installs the headers as the same tree that the sources use, the libraries, and the two package descriptions.
include(CMakePackageConfigHelpers)

foreach(folder IN ITEMS NqUtils NqCore NqHost)
  install(DIRECTORY ${folder}/PublicAPI DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} FILES_MATCHING PATTERN "*.h")
endforeach()

install(TARGETS NqPlatform NqCore NqHostServices Host EXPORT NqCoreTargets
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(EXPORT NqCoreTargets NAMESPACE Nq:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NqCore)

configure_package_config_file(cmake/NqCoreConfig.cmake.in ${CMAKE_CURRENT_BINARY_DIR}/NqCoreConfig.cmake
                              INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NqCore PATH_VARS CMAKE_INSTALL_BINDIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/NqCoreConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES cmake/NqCoreResources.cmake ${CMAKE_CURRENT_BINARY_DIR}/NqCoreConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/NqCoreConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/NqCore)

configure_file(cmake/nqcore.pc.in ${CMAKE_CURRENT_BINARY_DIR}/nqcore.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nqcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
