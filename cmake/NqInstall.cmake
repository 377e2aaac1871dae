# Installs the headers as the same tree that the sources use, the libraries, and the two package descriptions.
include(CMakePackageConfigHelpers)

foreach(folder IN ITEMS NqUtils NqCore NqHost)
  install(DIRECTORY ${folder}/PublicAPI DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${folder} FILES_MATCHING PATTERN "*.h")
endforeach()

# An object is the same in a static and in a shared library, so that a compiler cache serves both.
set_target_properties(NqPlatform NqCore NqHostServices PROPERTIES DEFINE_SYMBOL "")
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

# A program takes static libraries in a group, as the host and the core call each other, and with all that these need. Shared ones
# bring along what they need; the core stands first, as it needs the host where the program itself does not.
set(NQCORE_PC_LIBS "-Wl,--start-group -lNqHost -lNqCore -lNqPlatform -Wl,--end-group")
set(NQCORE_PC_REQUIRES "Requires")
if(BUILD_SHARED_LIBS)
  set(NQCORE_PC_LIBS "-lNqCore -lNqHost")
  set(NQCORE_PC_REQUIRES "Requires.private")
endif()
# Found from where the description lies, so that an installation can be moved.
set(NQCORE_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
if(NOT IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  string(REGEX REPLACE "[^/]+" ".." NQCORE_PC_PREFIX "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
  string(PREPEND NQCORE_PC_PREFIX "\${pcfiledir}/")
endif()
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_LIBDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE NQCORE_PC_LIBDIR)
cmake_path(ABSOLUTE_PATH CMAKE_INSTALL_INCLUDEDIR BASE_DIRECTORY "\${prefix}" OUTPUT_VARIABLE NQCORE_PC_INCLUDEDIR)
configure_file(cmake/nqcore.pc.in ${CMAKE_CURRENT_BINARY_DIR}/nqcore.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/nqcore.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
