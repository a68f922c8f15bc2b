# What `cmake --install` puts and `cpack -G DEB` packs: the library with its
# public headers, its CMake package and its pkg-config file; the platform's
# stand-ins as a package of their own (an editor with its own platform links
# only the library); the host programs in libexec, where the library looks
# for them relative to itself; vlorfx in bin.
include(CMakePackageConfigHelpers)

set(VLOR_PLATFORM_LIBS vlorbase vlorxml vloraudio vlorqt)
foreach(lib ${VLOR_PLATFORM_LIBS})
  set_target_properties(${lib} PROPERTIES VERSION ${PROJECT_VERSION}.0 SOVERSION 0)
endforeach()
# The libraries find one another in their own folder, however deep the
# library folder is (lib, lib64, lib/x86_64-linux-gnu).
set_target_properties(${VLOR_PLATFORM_LIBS} qtvloraudioplugins PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${VLOR_PLATFORM_LIBS} EXPORT QtVlorPlatformTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development)
file(GLOB VLOR_PLATFORM_HEADERS ${PROJECT_SOURCE_DIR}/platform/base/*.h ${PROJECT_SOURCE_DIR}/platform/audio/*.h
  ${PROJECT_SOURCE_DIR}/platform/qt/*.h)
list(FILTER VLOR_PLATFORM_HEADERS EXCLUDE REGEX "_p\\.h$")
install(FILES ${VLOR_PLATFORM_HEADERS} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qtvlorplatform COMPONENT development)

# The host programs run beside no application of their own: in libexec,
# reaching the libraries two folders up.
set(VLOR_LIBEXEC ${CMAKE_INSTALL_LIBEXECDIR}/qtvloraudioplugins)
if(TARGET vlorvst)
  foreach(host vlorvst vlorvst3 vlorlv2)
    set_target_properties(${host} PROPERTIES INSTALL_RPATH "$ORIGIN/../../${CMAKE_INSTALL_LIBDIR}")
  endforeach()
  install(TARGETS vlorvst vlorvst3 vlorlv2 RUNTIME DESTINATION ${VLOR_LIBEXEC} COMPONENT runtime)
endif()
if(TARGET vlorfx)
  install(TARGETS vlorfx RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
endif()

set(VLOR_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)
install(EXPORT QtVlorPlatformTargets NAMESPACE QtVlorPlatform:: DESTINATION ${VLOR_CMAKE_DIR}/QtVlorPlatform
  COMPONENT development)
install(EXPORT QtVlorAudioPluginsTargets NAMESPACE QtVlorAudioPlugins:: DESTINATION ${VLOR_CMAKE_DIR}/QtVlorAudioPlugins
  COMPONENT development)
foreach(package QtVlorPlatform QtVlorAudioPlugins)
  configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
    ${PROJECT_BINARY_DIR}/${package}Config.cmake INSTALL_DESTINATION ${VLOR_CMAKE_DIR}/${package})
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    VERSION ${PROJECT_VERSION} COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/${package}Config.cmake ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
    DESTINATION ${VLOR_CMAKE_DIR}/${package} COMPONENT development)
endforeach()
# Relative to the file itself, as the library finds its host programs: the prefix can move.
file(RELATIVE_PATH VLOR_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
foreach(pc qtvloraudioplugins qtvlorplatform)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${pc}.pc.in ${PROJECT_BINARY_DIR}/${pc}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${pc}.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()
install(FILES ${PROJECT_SOURCE_DIR}/README.md DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/qtvloraudioplugins
  COMPONENT runtime)
# The page's pictures and style sheet are compiled into the library; an
# editor that draws its own plugin list in the same words finds them here.
set(VLOR_UI_DIR ${PROJECT_SOURCE_DIR}/src/ui)
install(DIRECTORY ${VLOR_UI_DIR}/icones/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qtvloraudioplugins/icons COMPONENT runtime)
install(DIRECTORY ${VLOR_UI_DIR}/styles/ DESTINATION ${CMAKE_INSTALL_DATADIR}/qtvloraudioplugins/styles COMPONENT runtime)
# vlorfx gui in the desktop's menus, with its icon.
set(VLOR_APP_SHARE ${PROJECT_SOURCE_DIR}/app/vlorfx/share)
install(FILES ${VLOR_APP_SHARE}/vlorfx.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT runtime)
install(FILES ${VLOR_APP_SHARE}/vlorfx.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps
  COMPONENT runtime)

# One Debian package of all of it.
set(CPACK_PACKAGE_NAME qtvloraudioplugins)
set(CPACK_PACKAGE_VENDOR "libqtvloraudioplugins")
set(CPACK_PACKAGE_CONTACT "libqtvloraudioplugins developers <dev@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Audio effect plugins (VST2, VST3, LV2) for Qt audio editors, run in child processes")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION}.0)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Qt draws vlorfx's icon through a plugin, which no library names.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6svg6")
set(CPACK_STRIP_FILES ON)
include(CPack)
