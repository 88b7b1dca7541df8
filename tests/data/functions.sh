# What the scripts of this folder share.

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# The output of a tool is of interest only when it fails.
quiet() {
    local said
    said=$("$@" 2>&1 </dev/null) || fail "'$1 ${2-}' failed: $said"
}
