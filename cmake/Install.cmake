# `cmake --install build --prefix P`: the libraries with their siblings, the public headers, lfx,
# the frei0r plug-ins, a CMake package (find_package(libfilter CONFIG) gives libfilter::libfilter)
# and a pkg-config file. Installed programs and plug-ins find the libraries relative to
# themselves, so a prefix can move.
include(CMakePackageConfigHelpers)

set(LIBFILTER_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/libfilter)
set(libraries filter log core)
if(TARGET convert)
    list(APPEND libraries convert)
endif()

set_target_properties(filter PROPERTIES EXPORT_NAME libfilter)
set_target_properties(${libraries} PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS ${libraries} EXPORT libfilterTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
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

# pkg-config: the prefix is found from the file's own place.
file(RELATIVE_PATH LIBFILTER_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" LIBFILTER_PC_PREFIX ${LIBFILTER_PC_PREFIX})
list(TRANSFORM libraries PREPEND -l OUTPUT_VARIABLE LIBFILTER_PC_LIBS)
list(JOIN LIBFILTER_PC_LIBS " " LIBFILTER_PC_LIBS)
configure_file(cmake/libfilter.pc.in ${PROJECT_BINARY_DIR}/libfilter.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/libfilter.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

if(TARGET lfx)
    file(RELATIVE_PATH libraryDir /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
    set_target_properties(lfx PROPERTIES INSTALL_RPATH "$ORIGIN/${libraryDir}")
    install(TARGETS lfx RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
endif()
