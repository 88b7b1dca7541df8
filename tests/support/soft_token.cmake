# Sets path_of_module to SoftHSM's PKCS#11 module and path_of_engine to libp11's engine of this system.
foreach(what module engine)
    execute_process(COMMAND ${PROJECT_SOURCE_DIR}/tools/soft-token ${what} OUTPUT_VARIABLE path_of_${what}
        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
endforeach()
