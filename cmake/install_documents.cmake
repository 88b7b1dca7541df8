# The component "documents": the guides and the reference as HTML, with the schema files of the program's JSON output. They are
# built when they are installed, because few builds need them. Without the programs that build them, the component does not exist.
find_program(MARVO_PANDOC pandoc)
find_program(MARVO_DOXYGEN doxygen)
if(NOT MARVO_PANDOC OR NOT MARVO_DOXYGEN)
    message(STATUS "The HTML documents cannot be installed: they need pandoc and Doxygen")
    return()
endif()
install(CODE "execute_process(
    COMMAND [[${PROJECT_SOURCE_DIR}/docs/build-html]] [[${PROJECT_BINARY_DIR}/html]]
    OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)" COMPONENT documents)
install(DIRECTORY ${PROJECT_BINARY_DIR}/html TYPE DOC COMPONENT documents)
