# Installs the library with its CMake and pkg-config files, and configures its Debian packages.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(package "${CMAKE_INSTALL_LIBDIR}/cmake/Tarnwick")
install(
  TARGETS Tarnwick
  EXPORT TarnwickTargets
  RUNTIME COMPONENT runtime
  LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE COMPONENT development
  FILE_SET HEADERS COMPONENT development)
install(
  EXPORT TarnwickTargets
  NAMESPACE Tarnwick::
  DESTINATION ${package}
  COMPONENT development)
configure_package_config_file("${CMAKE_CURRENT_LIST_DIR}/TarnwickConfig.cmake.in"
                              TarnwickConfig.cmake INSTALL_DESTINATION ${package})
write_basic_package_version_file(TarnwickConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(
  FILES "${PROJECT_BINARY_DIR}/TarnwickConfig.cmake"
        "${PROJECT_BINARY_DIR}/TarnwickConfigVersion.cmake"
        "${CMAKE_CURRENT_LIST_DIR}/FindZimg.cmake"
  DESTINATION ${package}
  COMPONENT development)

# A program that links the static library must link the library's dependencies, too.
if(NOT BUILD_SHARED_LIBS)
  set(pkgConfigRequires "Requires: libjpeg libpng zimg")
endif()
# The .pc file's paths are relative to the file, so that the folder can be moved. Under /usr they
# are absolute, because pkg-config omits the system's folders from the flags only in that form.
set(pkgConfigPrefix "${CMAKE_INSTALL_PREFIX}")
set(pkgConfigLibraries "${CMAKE_INSTALL_FULL_LIBDIR}")
set(pkgConfigHeaders "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  foreach(folder pkgConfigPrefix pkgConfigLibraries pkgConfigHeaders)
    file(RELATIVE_PATH relative "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${${folder}}")
    set(${folder} "\${pcfiledir}/${relative}")
  endforeach()
endif()
configure_file("${CMAKE_CURRENT_LIST_DIR}/tarnwick.pc.in" tarnwick.pc @ONLY)
install(
  FILES "${PROJECT_BINARY_DIR}/tarnwick.pc"
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)

# The shared library gets two Debian packages: one to run programs and one to build them.
if(NOT BUILD_SHARED_LIBS OR NOT PROJECT_IS_TOP_LEVEL)
  return()
endif()
set(runtimePackage libtarnwick${tarnwick_soversion})
set(developmentPackage libtarnwick-dev)
set(CPACK_PACKAGE_CONTACT "the Tarnwick authors <tarnwick@localhost>")
find_program(TARNWICK_GZIP gzip)
string(TIMESTAMP date "%a, %d %b %Y 00:00:00 +0000" UTC)
file(
  WRITE "${PROJECT_BINARY_DIR}/changelog"
  "tarnwick (${PROJECT_VERSION}) unstable; urgency=medium\n\n"
  "  * See CHANGELOG.md in the sources.\n\n"
  " -- ${CPACK_PACKAGE_CONTACT}  ${date}\n")
file(WRITE "${PROJECT_BINARY_DIR}/triggers" "activate-noawait ldconfig\n")
foreach(component runtime development)
  set(documents "${CMAKE_INSTALL_DATADIR}/doc/${${component}Package}")
  install(
    FILES "${PROJECT_SOURCE_DIR}/LICENSE"
    DESTINATION ${documents}
    RENAME copyright
    COMPONENT ${component})
  if(TARNWICK_GZIP)
    add_custom_command(
      OUTPUT changelog.gz
      COMMAND ${TARNWICK_GZIP} -9nc changelog > changelog.gz
      DEPENDS changelog
      VERBATIM)
    install(
      FILES "${PROJECT_BINARY_DIR}/changelog.gz"
      DESTINATION ${documents}
      COMPONENT ${component})
  endif()
endforeach()
if(TARNWICK_GZIP)
  add_custom_target(changelog ALL DEPENDS changelog.gz)
endif()
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_VENDOR "the Tarnwick authors")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_STRIP_FILES ON)
file(WRITE "${PROJECT_BINARY_DIR}/shlibs"
     "libtarnwick ${tarnwick_soversion} ${runtimePackage} (>= ${PROJECT_VERSION})\n")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtimePackage})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${PROJECT_BINARY_DIR}/triggers"
    "${PROJECT_BINARY_DIR}/shlibs")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "moves images, video and audio between machines over UDP
 An application links it to receive pictures of another machine's screen,
 video frames and recordings, or to send pictures of its own screen.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${developmentPackage})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtimePackage} (= ${PROJECT_VERSION}), libc6-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "moves images, video and audio over UDP, for building with it
 The headers of the library, its CMake package and its pkg-config file.")
include(CPack)
