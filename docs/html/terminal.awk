# Turns the output of a command into a picture of a terminal, as SVG. The variable "command" is what was typed.
function text(line) {
    gsub(/&/, "\\&amp;", line)
    gsub(/</, "\\&lt;", line)
    gsub(/>/, "\\&gt;", line)
    return line
}

# Verdicts have a colour; the script's own steps are dimmed.
function styled(line) {
    line = text(line)
    if (line ~ /^demo: /) return "<tspan class=\"step\">" line "</tspan>"
    sub(/passed$/, "<tspan class=\"good\">passed</tspan>", line)
    sub(/FAILED$/, "<tspan class=\"bad\">FAILED</tspan>", line)
    return line
}

{
    lines[NR] = $0
    if (length($0) > columns) columns = length($0)
}

END {
    width = columns * 7.25 + 32
    height = (NR + 1) * 18 + 28
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%d\" height=\"%d\" viewBox=\"0 0 %d %d\">\n", width, height, width, height
    print "<style>text { font: 12px ui-monospace, \"DejaVu Sans Mono\", Consolas, monospace; fill: #e6e6e6; white-space: pre }"
    print ".step { fill: #9aa4b2 } .good { fill: #6bd968 } .bad { fill: #ff7b72 } .prompt { fill: #79b8ff }</style>"
    print "<rect width=\"100%\" height=\"100%\" rx=\"8\" fill=\"#1b1f27\"/>"
    printf "<text x=\"16\" y=\"26\" xml:space=\"preserve\"><tspan class=\"prompt\">$ </tspan>%s</text>\n", text(command)
    for (i = 1; i <= NR; ++i)
        printf "<text x=\"16\" y=\"%d\" xml:space=\"preserve\">%s</text>\n", 26 + 18 * i, styled(lines[i])
    print "</svg>"
}
