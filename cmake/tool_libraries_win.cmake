# The header-only libraries of the program marvo are the same on all systems. They are copied, because their folder also
# contains headers that are not for Windows.
foreach(header CLI/CLI.hpp nlohmann/json.hpp)
    get_filename_component(folder ${header} DIRECTORY)
    find_path(MARVO_${folder}_INCLUDE_DIR ${header} PATHS /usr/include NO_CMAKE_FIND_ROOT_PATH REQUIRED
        DOC "The folder of ${header}")
    file(COPY ${MARVO_${folder}_INCLUDE_DIR}/${folder} DESTINATION ${PROJECT_BINARY_DIR}/tool_libraries)
endforeach()
add_library(tool_libraries INTERFACE)
target_include_directories(tool_libraries SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/tool_libraries)
