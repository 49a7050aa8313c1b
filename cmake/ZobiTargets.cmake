# What the build tree offers to those that include it: the headers that are installed, and no other.
set(ZOBI_INCLUDE_DIRECTORY "${PROJECT_BINARY_DIR}/include")
# A folder of its own for each major version, as the libraries have a name for each.
set(ZOBI_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/ZobiConnectKit-${PROJECT_VERSION_MAJOR}")

# What most sources of the libraries include.
set(ZOBI_STANDARD_HEADERS algorithm array chrono cstdint functional map memory optional ranges set span stdexcept
    string string_view unordered_map utility variant vector)

# zobi_set_properties(TARGET): what all of our compiled code has in common.
function(zobi_set_properties target)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    # As Clang does unasked: what we call of our own library is called directly, and may be inlined. GCC leaves room
    # for others to replace it.
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -fno-semantic-interposition)
    endif()
endfunction()

# zobi_precompile(TARGET HEADER...): headers of others that most sources of a target include, compiled once. A source
# includes what it needs all the same: the release preset builds without this, and its compile commands are linted.
function(zobi_precompile target)
    list(TRANSFORM ARGN REPLACE "(.+)" "<\\1>")
    target_precompile_headers(${target} PRIVATE ${ARGN})
endfunction()

# zobi_add_library(TARGET EXPORTED_NAME INCLUDE_PREFIX SOURCES... PUBLIC_HEADERS...): one of the project's libraries,
# ZobiConnectKit::EXPORTED_NAME. Its public headers are included as "INCLUDE_PREFIX/HEADER", here and by everybody.
function(zobi_add_library target exported_name prefix)
    cmake_parse_arguments(PARSE_ARGV 3 arg "" "" "SOURCES;PUBLIC_HEADERS")
    add_library(${target} ${arg_SOURCES})
    add_library(ZobiConnectKit::${exported_name} ALIAS ${target})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_include_directories(${target} PUBLIC
        "$<BUILD_INTERFACE:${ZOBI_INCLUDE_DIRECTORY}>"
        "$<INSTALL_INTERFACE:${ZOBI_INSTALL_INCLUDEDIR}>")
    zobi_set_properties(${target})
    zobi_precompile(${target} ${ZOBI_STANDARD_HEADERS})
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${exported_name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})

    # A target of their own: a file set puts its base, here a folder of the source tree, on the include path of
    # whoever links its target.
    add_library(${target}Headers INTERFACE)
    target_sources(${target}Headers INTERFACE
        FILE_SET HEADERS BASE_DIRS "${CMAKE_CURRENT_SOURCE_DIR}" FILES ${arg_PUBLIC_HEADERS})
    target_link_libraries(${target}Headers INTERFACE ${target})
    foreach(header IN LISTS arg_PUBLIC_HEADERS)
        file(GENERATE OUTPUT "${ZOBI_INCLUDE_DIRECTORY}/${prefix}/${header}"
            CONTENT "#include \"${CMAKE_CURRENT_SOURCE_DIR}/${header}\"\n")
    endforeach()
    if(ZOBI_INSTALL)
        install(TARGETS ${target}Headers FILE_SET HEADERS
            DESTINATION "${ZOBI_INSTALL_INCLUDEDIR}/${prefix}" COMPONENT ZobiConnectKit_Development)
    endif()
endfunction()

# zobi_add_program(NAME SOURCES...): a program that is not installed, as the target zobi-NAME.
function(zobi_add_program name)
    add_executable(zobi-${name} ${ARGN})
    set_target_properties(zobi-${name} PROPERTIES OUTPUT_NAME ${name} CXX_EXTENSIONS OFF)
endfunction()
