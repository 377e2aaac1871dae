# Makes a source file of a public header: the header alone, then the code of its comments.
#   awk -v header=NqCore/PublicAPI/NqRect.h -v base=NqRect -f Extract.awk NqCore/PublicAPI/NqRect.h
#
# Code stands five blanks behind the slashes. What only blank comment lines part is one quick start and becomes one function, unless it
# is a function itself; "..." is what a reader would put there. What the code uses and does not declare stands in Names.h.

BEGIN {
    printf "#include \"%s\"\n\n#define QUICK_START_OF_%s\n#include \"Tests/QuickStarts/Names.h\"\n", header, base
    # The headers are held to all warnings. A quick start ends early, names things as Names.h does, and counts with plain numbers.
    split("unused-variable unused-but-set-variable shadow sign-conversion", allowed)
    print ""
    for (i = 1; i in allowed; ++i)
        printf "#pragma GCC diagnostic ignored \"-W%s\"\n", allowed[i]
}

/^ *\/\/     / {
    if (count == 0)
        first = FNR
    for (; blanks > 0; --blanks)
        code[count++] = ""
    line = $0
    sub(/^ *\/\/     /, "", line)
    sub(/^ *\.\.\.( .*)?$/, "static_assert(true, \"\");", line)
    gsub(/\{ \.\.\. \}/, "{}", line)
    code[count++] = line
    next
}

/^ *\/\/$/ && count > 0 {
    ++blanks
    next
}

{ write_quick_start() }
END { write_quick_start() }

function write_quick_start(    i, is_function, type)
{
    if (count == 0)
        return
    is_function = code[0] ~ /^[a-z].*[^;]$/ && code[0] !~ /^(if|for|while|switch|class|try)/ && code[1] == "{"
    type = "bool"
    for (i = 0; i < count; ++i)
        if (code[i] ~ /return;/)
            type = "void"
    print ""
    if (!is_function)
        printf "%s QuickStart%d()\n{\n", type, ++quick_starts
    printf "#line %d \"%s\"\n", first, header
    for (i = 0; i < count; ++i)
        print code[i]
    if (!is_function)
        print (type == "bool" ? "return true;\n" : "") "}"
    count = blanks = 0
}
