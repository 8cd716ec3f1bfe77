# `cmake --install build --prefix P`: the libraries with their siblings, the public headers, lfx,
# the frei0r plug-ins, a CMake package (find_package(libfilter CONFIG) gives libfilter::libfilter)
# and pkg-config files (libfilter, libconvert). Installed programs and plug-ins find the libraries
# relative to themselves, so a prefix can move.
#
# Only libfilter itself goes into the prefix's library folder. liblog, libcore and libconvert
# keep the short names hosts know them by, which in a shared prefix such as /usr would clash with
# other packages, so they live in a folder of their own (<libdir>/libfilter) that every installed
# library and program finds through its run path.
include(CMakePackageConfigHelpers)

set(LIBFILTER_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/libfilter)
set(libraries filter log core)
if(TARGET convert)
    list(APPEND libraries convert)
endif()

set(LIBFILTER_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/libfilter)
set(siblings ${libraries})
list(REMOVE_ITEM siblings filter)

set_target_properties(filter PROPERTIES EXPORT_NAME libfilter INSTALL_RPATH "$ORIGIN/libfilter")
set_target_properties(${siblings} PROPERTIES INSTALL_RPATH "$ORIGIN:$ORIGIN/..")
# Versioned sonames: the build tree keeps the plain names as links, so hosts that load
# libfilter.so or liblog.so by name still find them.
set_target_properties(${libraries} PROPERTIES VERSION ${PROJECT_VERSION}
                                              SOVERSION ${PROJECT_VERSION_MAJOR})
install(TARGETS filter EXPORT libfilterTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS ${siblings} EXPORT libfilterTargets LIBRARY DESTINATION ${LIBFILTER_PRIVATE_LIBDIR})
install(DIRECTORY include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

install(EXPORT libfilterTargets NAMESPACE libfilter:: DESTINATION ${LIBFILTER_PACKAGE_DIR})
configure_package_config_file(cmake/libfilterConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/libfilterConfig.cmake
                              INSTALL_DESTINATION ${LIBFILTER_PACKAGE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/libfilterConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/libfilterConfig.cmake
              ${PROJECT_BINARY_DIR}/libfilterConfigVersion.cmake
        DESTINATION ${LIBFILTER_PACKAGE_DIR})

# pkg-config: the prefix is found from the file's own place. libfilter needs only its siblings;
# libconvert, which hosts use for frame converters, is a module of its own.
file(RELATIVE_PATH LIBFILTER_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" LIBFILTER_PC_PREFIX ${LIBFILTER_PC_PREFIX})
foreach(module libfilter libconvert)
    if(module STREQUAL "libfilter" OR TARGET convert)
        configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/${module}.pc
                DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
    endif()
endforeach()

if(TARGET lfx)
    file(RELATIVE_PATH libraryDir /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
    set_target_properties(lfx PROPERTIES
                          INSTALL_RPATH "$ORIGIN/${libraryDir}:$ORIGIN/${libraryDir}/libfilter")
    install(TARGETS lfx RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
