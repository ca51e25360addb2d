# Prints the name of every function and variable that the headers given on the command line declare MARL_API.
#
# A declaration is whatever stands between two of ; { } once comments and directives are gone, so prototypes may run
# over several lines and share lines with others.

{
    sub(/\r$/, "")
    if (!directive && $0 !~ /^[ \t]*#/) text = text $0 "\n"
    # A directive goes on while its lines end in a backslash.
    directive = (directive || $0 ~ /^[ \t]*#/) && $0 ~ /\\$/
}

END {
    text = without_comments(text)
    count = split(text, declarations, /[;{}]/)
    for (i = 1; i <= count; i++) {
        declaration = declarations[i]
        if (declaration !~ /(^|[^A-Za-z0-9_])MARL_API[ \t\n]/) continue
        sub(/^(.*[^A-Za-z0-9_])?MARL_API[ \t\n]+/, "", declaration)
        declaration = without_attributes(declaration)
        print declared_name(declaration)
    }
}

function without_comments(source,    result, line, block) {
    result = ""
    for (;;) {
        line = index(source, "//")
        block = index(source, "/*")
        if (!line && !block) return result source
        if (line && (!block || line < block)) {
            result = result substr(source, 1, line - 1)
            source = substr(source, line)
            source = index(source, "\n") ? substr(source, index(source, "\n")) : ""
        } else {
            result = result substr(source, 1, block - 1) " "
            source = substr(source, block + 2)
            source = index(source, "*/") ? substr(source, index(source, "*/") + 2) : ""
        }
    }
}

# Removes every __attribute__((...)), whose parentheses would be taken for an argument list.
function without_attributes(source,    start, end, depth, c) {
    while ((start = index(source, "__attribute__"))) {
        depth = 0
        for (end = start + length("__attribute__"); end <= length(source); end++) {
            c = substr(source, end, 1)
            if (c == "(") depth++
            if (c == ")" && --depth == 0) break
        }
        source = substr(source, 1, start - 1) " " substr(source, end + 1)
    }
    return source
}

# A function is the identifier before the first parenthesis, a pointer to a function the one behind "(*", and a
# variable the last identifier before an array bound or the end.
function declared_name(declaration) {
    if (match(declaration, /\([ \t\n]*\*[ \t\n]*/)  && index(declaration, "(") == RSTART) {
        declaration = substr(declaration, RSTART + RLENGTH)
        sub(/[^A-Za-z0-9_].*$/, "", declaration)
        return declaration
    }
    sub(/[ \t\n]*[\[(=].*$/, "", declaration)
    sub(/[ \t\n]+$/, "", declaration)
    sub(/^.*[^A-Za-z0-9_]/, "", declaration)
    return declaration
}
