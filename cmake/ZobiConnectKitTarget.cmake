# zok_add_library(TARGET EXPORTED_NAME SOURCES...): one of the project's libraries, ZobiConnectKit::EXPORTED_NAME.
function(zok_add_library target exported_name)
    add_library(${target} ${ARGN})
    add_library(ZobiConnectKit::${exported_name} ALIAS ${target})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
        "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
        "$<INSTALL_INTERFACE:${ZOK_INSTALL_INCLUDEDIR}>")
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${exported_name}
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()
