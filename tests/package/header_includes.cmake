# Fails unless the header includes only <stddef.h>.
file(STRINGS ${HEADER} includes REGEX "^[ \t]*#[ \t]*(include|import)")
if(NOT includes STREQUAL "#include <stddef.h>")
    message(FATAL_ERROR "${HEADER} includes: ${includes}")
endif()
