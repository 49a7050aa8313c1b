# What `cmake --install` installs besides the headers, in three components: ZobiConnectKit_Runtime,
# ZobiConnectKit_Development and ZobiConnectKit_Tool.
include(CMakePackageConfigHelpers)

# Two exports: that of the radio is read only where a consumer has what the radio is linked with.
set(exports ZobiConnectKitTargets)
set(ZobiConnectKitTargets ZobiConnectKit ZobiConnectKitPlatform ZobiConnectKitSimulation)
set(packages ZobiConnectKit ZobiConnectKit-simulation)
if(ZOBI_BLUEZ_IS_BUILT)
    list(APPEND exports ZobiConnectKitBlueZTargets)
    set(ZobiConnectKitBlueZTargets ZobiConnectKitBlueZ)
    list(APPEND packages ZobiConnectKit-bluez)
endif()

# An rpath that the packager gave stands; without one, what is installed is found even where it is moved.
if(NOT DEFINED CMAKE_INSTALL_RPATH)
    set_target_properties(${ZobiConnectKitTargets} ${ZobiConnectKitBlueZTargets} PROPERTIES INSTALL_RPATH "$ORIGIN")
    if(ZOBI_TOOL_IS_BUILT)
        if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
            set(librariesOfTool "${CMAKE_INSTALL_LIBDIR}")
        else()
            file(RELATIVE_PATH librariesOfTool "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
            string(PREPEND librariesOfTool "$ORIGIN/")
        endif()
        set_target_properties(zobiconnect PROPERTIES INSTALL_RPATH "${librariesOfTool}")
    endif()
endif()

set(packageDirectory "${CMAKE_INSTALL_LIBDIR}/cmake/ZobiConnectKit")
foreach(export IN LISTS exports)
    install(TARGETS ${${export}} EXPORT ${export}
        RUNTIME COMPONENT ZobiConnectKit_Runtime
        LIBRARY COMPONENT ZobiConnectKit_Runtime NAMELINK_COMPONENT ZobiConnectKit_Development
        ARCHIVE COMPONENT ZobiConnectKit_Development)
    install(EXPORT ${export} NAMESPACE ZobiConnectKit::
        DESTINATION "${packageDirectory}" COMPONENT ZobiConnectKit_Development)
endforeach()
if(ZOBI_TOOL_IS_BUILT)
    install(TARGETS zobiconnect RUNTIME COMPONENT ZobiConnectKit_Tool)
endif()

write_basic_package_version_file("${PROJECT_BINARY_DIR}/ZobiConnectKitConfigVersion.cmake"
    COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_LIST_DIR}/ZobiConnectKitConfig.cmake"
    "${PROJECT_BINARY_DIR}/ZobiConnectKitConfigVersion.cmake"
    DESTINATION "${packageDirectory}" COMPONENT ZobiConnectKit_Development)

# Below the prefix paths are relative to it, so that `pkg-config --define-variable=prefix=...` moves them.
set(pcLibdir "${CMAKE_INSTALL_LIBDIR}")
set(pcIncludedir "${ZOBI_INSTALL_INCLUDEDIR}")
foreach(directory IN ITEMS pcLibdir pcIncludedir)
    if(NOT IS_ABSOLUTE "${${directory}}")
        string(PREPEND ${directory} "\${prefix}/")
    endif()
endforeach()
# A shared library brings what it needs along.
set(pcRequiresSystemd "")
get_target_property(libraryType ZobiConnectKit TYPE)
if(libraryType STREQUAL "STATIC_LIBRARY")
    set(pcRequiresSystemd "Requires.private: libsystemd\n")
endif()
foreach(package IN LISTS packages)
    configure_file("${CMAKE_CURRENT_LIST_DIR}/${package}.pc.in" "${PROJECT_BINARY_DIR}/${package}.pc" @ONLY)
    # Only the installation knows the prefix for certain.
    install(CODE "
        file(READ \"${PROJECT_BINARY_DIR}/${package}.pc\" text)
        file(WRITE \"${PROJECT_BINARY_DIR}/installed/${package}.pc\" \"prefix=\${CMAKE_INSTALL_PREFIX}\\n\${text}\")"
        COMPONENT ZobiConnectKit_Development)
    install(FILES "${PROJECT_BINARY_DIR}/installed/${package}.pc"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT ZobiConnectKit_Development)
endforeach()
