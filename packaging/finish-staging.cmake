# CPack runs this after it has copied the files into its staging folder, and before it packs them.
set(packaging ${CPACK_MARVO_SOURCE_DIR}/packaging)

# Lists what the package contains. The files are stripped already, so that the checksums are those of the packaged files.
function(write_sbom stage documents name version)
    set(bundled ${ARGN})
    list(TRANSFORM bundled PREPEND --bundled=)
    execute_process(COMMAND ${packaging}/sbom --name ${name} --version ${version} ${bundled}
            --output ${stage}/${documents}/sbom.cdx.json ${stage}
        COMMAND_ERROR_IS_FATAL ANY)
endfunction()

if(CPACK_GENERATOR STREQUAL "DEB")
    foreach(component IN LISTS CPACK_COMPONENTS_ALL)
        string(TOUPPER ${component} upper)
        set(package ${CPACK_DEBIAN_${upper}_PACKAGE_NAME})
        set(stage ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component})
        execute_process(COMMAND ${packaging}/debian/add-documents ${stage}/usr ${package} ${component}
            COMMAND_ERROR_IS_FATAL ANY)
        set(bundled)
        if(component STREQUAL "tools")
            set(bundled ${CPACK_MARVO_BUNDLED})
        endif()
        write_sbom(${stage} usr/share/doc/${package} ${package}
            ${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE} ${bundled})
    endforeach()
else()
    write_sbom(${CPACK_TEMPORARY_INSTALL_DIRECTORY} ${CPACK_MARVO_DOC_DIR} ${CPACK_PACKAGE_NAME} ${CPACK_PACKAGE_VERSION}
        ${CPACK_MARVO_BUNDLED})
endif()
# CPack's TGZ contains the times of the staged files.
if(DEFINED ENV{SOURCE_DATE_EPOCH})
    execute_process(COMMAND find ${CPACK_TEMPORARY_INSTALL_DIRECTORY} -exec touch -h -d @$ENV{SOURCE_DATE_EPOCH} {} +
        COMMAND_ERROR_IS_FATAL ANY)
endif()
