# A package is named after the processor that the compiler builds for. Where Debian's tools can't tell
# which that is there are no packages: cpack would name them after this machine's.
if(CMAKE_CROSSCOMPILING)
  execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -dumpmachine
    OUTPUT_VARIABLE machine OUTPUT_STRIP_TRAILING_WHITESPACE)
  execute_process(COMMAND dpkg-architecture "-t${machine}" -q DEB_HOST_ARCH
    OUTPUT_VARIABLE debian_architecture OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
  if(NOT debian_architecture)
    message(STATUS "No Debian packages: ${machine} is none of Debian's machines")
    return()
  endif()
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${debian_architecture}")
endif()

# The two Debian packages, `img-deploy` and `libimg-deploy-dev`, which cpack makes of the components
# in package/ of the build directory.
set(maintainer "img_deploy maintainers <img-deploy@vorn.example>")
set(packaging "${PROJECT_SOURCE_DIR}/packaging/debian")
set(component_of_img-deploy device)
set(component_of_libimg-deploy-dev development)
foreach(package img-deploy libimg-deploy-dev)
  set(component ${component_of_${package}})
  set(docs "${CMAKE_INSTALL_DATADIR}/doc/${package}")
  configure_file("${packaging}/changelog.in" ${package}.changelog @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${package}.changelog"
    DESTINATION "${docs}" RENAME changelog.Debian COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES "${PROJECT_SOURCE_DIR}/CHANGELOG.md"
    DESTINATION "${docs}" RENAME changelog COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES "${packaging}/copyright"
    DESTINATION "${docs}" COMPONENT ${component} EXCLUDE_FROM_ALL)
  install(FILES "${packaging}/${package}.lintian-overrides"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/lintian/overrides" RENAME ${package}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/package")
set(CPACK_PACKAGE_CONTACT "${maintainer}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL device development)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
# In the packages alone: others strip and compress in their own way, or not.
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/finish_packages.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${CMAKE_CURRENT_LIST_DIR}/sbom.cmake")
set(CPACK_SBOM_COMPILER "${CMAKE_CXX_COMPILER_ID} ${CMAKE_CXX_COMPILER_VERSION}")
set(CPACK_SBOM_SIGNATURES "${SIGNATURES}")
set(CPACK_STRIP "${CMAKE_STRIP}")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)

set(CPACK_DEBIAN_DEVICE_PACKAGE_NAME img-deploy)
set(CPACK_DEBIAN_DEVICE_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_DEVICE_PACKAGE_SECTION admin)
set(CPACK_COMPONENT_DEVICE_DESCRIPTION
  "Builds and applies update images of a video processing device
Builds update images, one file with a directory tree in it, and applies them:
tests an image, unpacks it, writes boot loader and kernel to their partitions,
records the version and restarts the board. With img_info, which looks into
images, sysconfig, which keeps the device's configuration, and upgd_service,
the resident service in the small.")
set(CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS mount)
if(CMAKE_CROSSCOMPILING)
  # The cross-compiler's libraries would be named after the packages that bring them to this machine.
  string(APPEND CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS
    ", libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 4.9)")
  if(SIGNATURES)
    string(APPEND CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS ", libsodium23 (>= 1.0.18)")
  endif()
else()
  set(CPACK_DEBIAN_DEVICE_PACKAGE_SHLIBDEPS ON)
endif()

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libimg-deploy-dev)
set(CPACK_DEBIAN_DEVELOPMENT_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libc6-dev, libstdc++-12-dev | libstdc++-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS pkgconf)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS img-deploy)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "Update operations for a video processing device's resident service
The libraries and C headers with which the device's resident service applies
update images, has the cards flashed, lists USB disks and saves the settings.
With a pkg-config file, the guide and an example.")
include(CPack)
