# The libraries of the program marvo: header-only ones, and one that reads the format of libraries.
find_package(CLI11 2.1 REQUIRED)
find_package(nlohmann_json 3.11 REQUIRED)
add_library(tool_libraries INTERFACE)
target_link_libraries(tool_libraries INTERFACE CLI11::CLI11 nlohmann_json::nlohmann_json)
find_package(PkgConfig REQUIRED)
pkg_check_modules(libelf REQUIRED IMPORTED_TARGET libelf)
