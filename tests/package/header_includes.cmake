# Fails unless the header includes only the headers of ALLOWED, separated by "|".
file(STRINGS ${HEADER} includes REGEX "^[ \t]*#[ \t]*(include|import)")
string(REPLACE "|" ";" allowed "${ALLOWED}")
if(NOT includes STREQUAL allowed)
    message(FATAL_ERROR "${HEADER} includes: ${includes}")
endif()
