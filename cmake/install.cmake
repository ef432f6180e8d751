# What `cmake --install` and the package hold.
include(GNUInstallDirs)

set(programs img_deploy img_info)
set(libraries dtt_create dtt_update dtt_update_common)
set(pc_platform "${PLATFORM_LIBRARY}")
if(NOT PLATFORM_LIBRARY)
  list(APPEND programs sysconfig upgd_service)
  list(APPEND libraries platform)
  set(pc_platform -lplatform)
endif()

install(TARGETS ${programs} ${libraries})
foreach(program ${programs})
  install(FILES "${PROJECT_SOURCE_DIR}/man/${program}.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1")
  install(FILES "${PROJECT_SOURCE_DIR}/completion/${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions")
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/man/update-image.5"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man5")

foreach(header device_msg task_types udisk_info update_header update_service upgrade_info)
  install(FILES "${PROJECT_SOURCE_DIR}/include/${header}.h"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/img_deploy")
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/platform/platform.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/img_deploy/platform")

# The installed tree may be moved, into a sysroot for one.
file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/img_deploy.pc.in" img_deploy.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/img_deploy.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "img_deploy maintainers <maintainers@localhost>")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
  "Builds update images, one file with a directory tree in it, and applies them: tests an image,
unpacks it, writes boot loader and kernel to their partitions, records the version and restarts the
board. With the libraries that offer the same operations to the device's resident service.")
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_NAME img-deploy)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_DEPENDS mount)
if(CMAKE_CROSSCOMPILING)
  # The cross-compiler's libraries would be named after the packages that bring them to this machine.
  set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
  string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
    ", libc6 (>= 2.34), libgcc-s1 (>= 3.5), libstdc++6 (>= 4.9)")
  if(SODIUM_LIBRARY)
    string(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS ", libsodium23 (>= 1.0.18)")
  endif()
else()
  set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
endif()
include(CPack)
