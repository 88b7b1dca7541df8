# CPack runs this after it has copied the files into its staging folder, and before it packs them.
set(packaging ${CPACK_MARVO_SOURCE_DIR}/packaging)
if(CPACK_GENERATOR STREQUAL "DEB")
    foreach(component IN LISTS CPACK_COMPONENTS_ALL)
        string(TOUPPER ${component} upper)
        execute_process(COMMAND ${packaging}/debian/add-documents
                ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr ${CPACK_DEBIAN_${upper}_PACKAGE_NAME} ${component}
            COMMAND_ERROR_IS_FATAL ANY)
    endforeach()
endif()
# CPack's TGZ contains the times of the staged files.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
        COMMAND_ERROR_IS_FATAL ANY)
endif()
