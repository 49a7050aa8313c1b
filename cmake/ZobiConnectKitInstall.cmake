# What `cmake --install` installs. Nothing in it names the prefix: an installed tree can be moved.
include(CMakePackageConfigHelpers)

set(libraries ZobiConnectKit ZobiConnectKitPlatform ZobiConnectKitSimulation)
set(folders ZobiConnectKit platform platform/standard platform/simulation)
set(packages ZobiConnectKit ZobiConnectKit-simulation)
if(TARGET ZobiConnectKitBlueZ)
    list(APPEND libraries ZobiConnectKitBlueZ)
    # Its subfolders are its own.
    list(APPEND folders platform/bluez)
    list(APPEND packages ZobiConnectKit-bluez)
endif()
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${libraries} EXPORT ZobiConnectKitTargets)

foreach(folder IN LISTS folders)
    file(GLOB headers CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.h")
    install(FILES ${headers} DESTINATION "${ZOK_INSTALL_INCLUDEDIR}/${folder}")
endforeach()

set(packageDirectory "${CMAKE_INSTALL_LIBDIR}/cmake/ZobiConnectKit")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/ZobiConnectKitConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_LIST_DIR}/ZobiConnectKitConfig.cmake"
    "${PROJECT_BINARY_DIR}/ZobiConnectKitConfigVersion.cmake" DESTINATION "${packageDirectory}")
install(EXPORT ZobiConnectKitTargets NAMESPACE ZobiConnectKit:: DESTINATION "${packageDirectory}")

set(pkgConfigDirectory "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH includeFromPkgConfig "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig"
    "${CMAKE_INSTALL_FULL_INCLUDEDIR}/ZobiConnectKit-${PROJECT_VERSION_MAJOR}")
foreach(package IN LISTS packages)
    configure_file("${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in" "${PROJECT_BINARY_DIR}/${package}.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/${package}.pc" DESTINATION "${pkgConfigDirectory}")
endforeach()

if(TARGET zobiconnect)
    file(RELATIVE_PATH librariesFromTool "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
    set_target_properties(zobiconnect PROPERTIES INSTALL_RPATH "$ORIGIN/${librariesFromTool}")
    install(TARGETS zobiconnect)
endif()
