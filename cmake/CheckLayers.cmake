# Run by the build: fails when a source file of the library includes a header from a floor it
# must not see. The floors, lowest first:
#   base     string, encoding and system utilities, aligned memory, error reporting
#   core     processors, frames, pixel formats, vector dispatch, plane walks, effect descriptions
#   effects, stereo, geometry   the effects, side by side: each sees base and core, not the others
# Public headers (libfilter/...) are the interface every floor may use.
cmake_policy(VERSION 3.16)
set(allowed_base base)
set(allowed_core base core)
set(allowed_effects base core effects)
set(allowed_stereo base core stereo)
set(allowed_geometry base core geometry)

set(faults)
foreach(floor base core effects stereo geometry)
    file(GLOB sources ${SOURCE_DIR}/src/${floor}/*.cpp ${SOURCE_DIR}/src/${floor}/*.h)
    foreach(source IN LISTS sources)
        file(STRINGS ${source} includes REGEX "^#include \"[a-z]+/")
        foreach(line IN LISTS includes)
            string(REGEX REPLACE "^#include \"([a-z]+)/.*" "\\1" target "${line}")
            if(NOT target STREQUAL "libfilter" AND NOT target IN_LIST allowed_${floor})
                file(RELATIVE_PATH shown ${SOURCE_DIR} ${source})
                list(APPEND faults "${shown}: ${line} (${floor} must not see ${target})")
            endif()
        endforeach()
    endforeach()
endforeach()
if(faults)
    list(JOIN faults "\n  " text)
    message(FATAL_ERROR "Includes across the library's floors:\n  ${text}")
endif()
if(STAMP)
    file(TOUCH ${STAMP})
endif()
