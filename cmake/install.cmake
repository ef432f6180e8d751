# What `cmake --install` brings, in two components: `device`, what a board needs, and `development`,
# what an engineer needs who builds a service on the libraries.
include(GNUInstallDirs)

set(programs img_deploy img_info upgd_service)
set(libraries dtt_create dtt_update dtt_update_common)
if(PLATFORM_LIBRARY)
  # By its name alone: where it stands on this machine is no place in another one's tree.
  get_filename_component(platform_file "${PLATFORM_LIBRARY}" NAME)
  set(pc_platform "-l:${platform_file}")
else()
  list(APPEND programs sysconfig)
  list(APPEND libraries platform)
  set(pc_platform -limg_deploy_platform)
endif()

install(TARGETS ${programs} RUNTIME COMPONENT device)
foreach(program ${programs})
  install(FILES "${PROJECT_SOURCE_DIR}/man/${program}.1"
    DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT device)
  install(FILES "${PROJECT_SOURCE_DIR}/completion/${program}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/bash-completion/completions" COMPONENT device)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/man/update-image.5"
  DESTINATION "${CMAKE_INSTALL_MANDIR}/man5" COMPONENT device)

install(FILES "${PROJECT_SOURCE_DIR}/README.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/img-deploy" COMPONENT device)
# Where the former one's links lead.
install(FILES "${PROJECT_SOURCE_DIR}/docs/signing.md" "${PROJECT_SOURCE_DIR}/docs/building.md"
  DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/img-deploy/docs" COMPONENT device)

install(TARGETS ${libraries} ARCHIVE COMPONENT development)
foreach(header device_msg task_types udisk_info update_header update_service upgrade_info)
  install(FILES "${PROJECT_SOURCE_DIR}/include/${header}.h"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/img_deploy" COMPONENT development)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/platform/platform.h"
  DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/img_deploy/platform" COMPONENT development)
set(development_docs "${CMAKE_INSTALL_DATADIR}/doc/libimg-deploy-dev")
install(DIRECTORY "${PROJECT_SOURCE_DIR}/docs/"
  DESTINATION "${development_docs}" COMPONENT development
  PATTERN "*.c" EXCLUDE PATTERN "architecture.md" EXCLUDE)
install(FILES "${PROJECT_SOURCE_DIR}/docs/service_example.c"
  DESTINATION "${development_docs}/examples" COMPONENT development)

# The installed tree may be moved, into a sysroot for one.
file(RELATIVE_PATH prefix_from_pc "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" prefix_from_pc "${prefix_from_pc}")
configure_file("${CMAKE_CURRENT_LIST_DIR}/img_deploy.pc.in" img_deploy.pc @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/img_deploy.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)

include("${CMAKE_CURRENT_LIST_DIR}/debian.cmake")
