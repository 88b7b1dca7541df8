# Configures and builds a project in a new folder, and runs a program of it. Warnings are errors.
# -DSOURCE_DIR=<project> -DBUILD_DIR=<new folder> [-DSETTINGS=<-D..., separated by "|">]
# [-DPROGRAM=<name> -DEXPECTED=<output>]
string(REPLACE "|" ";" SETTINGS "${SETTINGS}")
file(REMOVE_RECURSE ${BUILD_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} -G Ninja -S ${SOURCE_DIR} -B ${BUILD_DIR} -DCMAKE_COMPILE_WARNING_AS_ERROR=ON ${SETTINGS}
    COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} --build ${BUILD_DIR} COMMAND_ERROR_IS_FATAL ANY)
if(PROGRAM)
    execute_process(COMMAND ${BUILD_DIR}/${PROGRAM} OUTPUT_VARIABLE output COMMAND_ERROR_IS_FATAL ANY)
    string(STRIP "${output}" output)
    if(NOT output STREQUAL EXPECTED)
        message(FATAL_ERROR "${PROGRAM} printed '${output}', not '${EXPECTED}'")
    endif()
endif()
