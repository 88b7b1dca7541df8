# Configures and builds a project in a new folder, and runs programs of it. Warnings are errors.
# -DSOURCE_DIR=<project> -DBUILD_DIR=<new folder> [-DSETTINGS=<-D..., separated by "|">]
# [-DPROGRAMS=<names, separated by "|"> -DEXPECTED=<their outputs, separated by "|">]
string(REPLACE "|" ";" SETTINGS "${SETTINGS}")
file(REMOVE_RECURSE ${BUILD_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${SOURCE_DIR} -B ${BUILD_DIR} -DCMAKE_COMPILE_WARNING_AS_ERROR=ON ${SETTINGS}
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD_DIR} COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "|" ";" PROGRAMS "${PROGRAMS}")
string(REPLACE "|" ";" EXPECTED "${EXPECTED}")
foreach(program expected IN ZIP_LISTS PROGRAMS EXPECTED)
    execute_process(COMMAND ${BUILD_DIR}/${program} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
    string(STRIP "${output}" output)
    if(NOT output STREQUAL expected)
        message(FATAL_ERROR "${program} printed '${output}', not '${expected}'")
    endif()
endforeach()
