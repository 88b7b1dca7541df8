# In the headers, a comment applies to all declarations up to the next blank line, such as a setter and its getter. Doxygen
# uses it for the first one only, so repeat it for the others.
function ends() { return /[;}]( *\/\/.*)?$/ }

/^ *\/\/\// {
    gsub(/ #if/, " \\#if") # not a link
    if (!in_comment) comment = ""
    comment = comment $0 "\n"
    in_comment = 1
    print
    next
}
/^ *#/ { print; next }
/^ *$/ || /[{:]( *\/\/.*)?$/ || /^ *}/ {
    comment = ""
    in_comment = is_open = 0
    print
    next
}
{
    if (!in_comment && !is_open) printf "%s", comment
    in_comment = 0
    is_open = !ends()
    print
}
