# libfilter_available_effects(<variable>): the short names of the catalogue's effects that this
# build can make, read at configure time from the catalogue's rows
# (tools/catalogue/Catalogue.cpp, each row starting `Kind(id, "name",`):
# - Factory rows whose id the factory table in src/effects/CommonEffects.cpp serves;
# - FactoryWithConverter rows likewise, and only when the build has the converter library
#   (target `convert`, defined before this is called);
# - Direct rows once include/libfilter/DirectEffects.h declares the classes.
# Editing any of these files reconfigures the build.
function(libfilter_available_effects variable)
    set(catalogueFile ${PROJECT_SOURCE_DIR}/tools/catalogue/Catalogue.cpp)
    set(factoryFile ${PROJECT_SOURCE_DIR}/src/effects/CommonEffects.cpp)
    set(idFile ${PROJECT_SOURCE_DIR}/include/libfilter/GProcessor.h)
    set(directHeader ${PROJECT_SOURCE_DIR}/include/libfilter/DirectEffects.h)
    set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS
                 ${catalogueFile} ${factoryFile} ${idFile})
    file(READ ${catalogueFile} catalogue)
    file(READ ${factoryFile} factory)
    file(READ ${idFile} ids)

    # The factory serves the ids of its table's rows, `{AVPROCESSOR_NAME, creator}`.
    set(space "[ \t\r\n]*")
    string(REGEX MATCHALL "[{]${space}AVPROCESSOR_[A-Z0-9_]+${space}," rows "${factory}")
    set(served)
    foreach(row IN LISTS rows)
        string(REGEX MATCH "AVPROCESSOR_[A-Z0-9_]+" constant "${row}")
        if(NOT ids MATCHES "${constant}${space}=${space}([0-9]+)")
            message(FATAL_ERROR "${idFile} does not number ${constant}")
        endif()
        list(APPEND served ${CMAKE_MATCH_1})
    endforeach()

    set(rowPattern "(Factory|FactoryWithConverter|Direct)\\(${space}([0-9]+),${space}\"([a-z0-9-]+)\"")
    string(REGEX MATCHALL "${rowPattern}" rows "${catalogue}")
    if(NOT rows)
        message(FATAL_ERROR "no catalogue rows found in ${catalogueFile}")
    endif()
    set(available)
    foreach(row IN LISTS rows)
        string(REGEX MATCH "${rowPattern}" _ "${row}")
        set(kind ${CMAKE_MATCH_1})
        set(id ${CMAKE_MATCH_2})
        set(name ${CMAKE_MATCH_3})
        if(kind STREQUAL "Direct")
            if(EXISTS ${directHeader})
                list(APPEND available ${name})
            endif()
        elseif(id IN_LIST served AND (kind STREQUAL "Factory" OR TARGET convert))
            list(APPEND available ${name})
        endif()
    endforeach()
    set(${variable} ${available} PARENT_SCOPE)
endfunction()
