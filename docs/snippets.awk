# Compares the code that readers see with the code that is compiled, or replaces the former by the latter.
#
#   awk -v mode=check -f docs/snippets.awk SOURCE... DOCUMENT...
#   awk -v mode=fill  -f docs/snippets.awk SOURCE... DOCUMENT      prints the document
#
# Sources are the files below docs/snippets. A region is enclosed by two lines "//! [name]". In a guide, a block of code
# follows the line "<!-- snippet: source#name -->", or "<!-- snippet: source -->" for a whole source file. In a header,
# the text between @code and @endcode is the region with the name of the header.

function fail(text)
{
    print FILENAME ":" FNR ": " text > "/dev/stderr"
    failures++
}

function dedented(text,    count, i, indent, least, lines, result)
{
    count = split(text, lines, "\n") - 1
    least = -1
    for (i = 1; i <= count; i++) {
        if (lines[i] == "")
            continue
        match(lines[i], /^ */)
        if (least < 0 || RLENGTH < least)
            least = RLENGTH
    }
    for (i = 1; i <= count; i++)
        result = result substr(lines[i], least + 1) "\n"
    return result
}

function begin_block(name)
{
    wanted = name
    is_in_block = 1
    shown = ""
    if (!(wanted in code))
        fail("there is no snippet " wanted)
    used[wanted] = 1
}

function end_block(prefix,    count, i, lines)
{
    is_in_block = 0
    if (mode == "fill") {
        count = split(code[wanted], lines, "\n") - 1
        for (i = 1; i <= count; i++)
            print lines[i] == "" ? substr(prefix, 1, length(prefix) - 1) : prefix lines[i]
    } else if (shown != code[wanted])
        fail("this code differs from the snippet " wanted "; run tools/docs --fill")
}

FNR == 1 {
    if (is_in_block || region != "")
        fail("a block is open at the end of the file before")
    is_in_block = 0
    region = ""
    marked = ""
    is_source = FILENAME ~ /docs\/snippets\//
    is_header = FILENAME ~ /\.h$/
    name = FILENAME
    if (is_source)
        sub(/.*docs\/snippets\//, "", name)
    else
        sub(/.*\//, "", name)
}

# Regions do not nest. The region of a header may be in any source, so its name is that of the header alone.
is_source && /^ *\/\/! \[.*\]$/ {
    tag = $0
    gsub(/^ *\/\/! \[|\]$/, "", tag)
    key = tag ~ /\.h$/ ? tag : name "#" tag
    if (region == key) {
        code[key] = dedented(text)
        region = ""
    } else if (region != "")
        fail("the region " region " is not closed")
    else {
        if (key in code)
            fail("there are two regions " key)
        region = key
        text = ""
        regions[key] = FILENAME ":" FNR
    }
    next
}

is_source {
    code[name] = code[name] $0 "\n"
    if (region != "")
        text = text $0 "\n"
    next
}

# Headers
is_header && /^ *\/\/\/ @code/ {
    if (mode == "fill")
        print
    begin_block(name)
    next
}
is_header && is_in_block && /^ *\/\/\/ @endcode/ {
    end_block("/// ")
    if (mode == "fill")
        print
    next
}
is_header && is_in_block {
    line = $0
    sub(/^ *\/\/\/ ?/, "", line)
    shown = shown line "\n"
    next
}

# Guides
!is_header && /^<!-- snippet: .* -->$/ {
    marked = $3
    if (mode == "fill")
        print
    next
}
!is_header && !is_in_block && /^```/ {
    if (mode == "fill")
        print
    if (marked != "")
        begin_block(marked)
    else if (/^```(cpp|cmake)/)
        fail("this code is not compiled: it follows no snippet marker")
    marked = ""
    next
}
!is_header && is_in_block && /^```$/ {
    end_block("")
    if (mode == "fill")
        print
    next
}
!is_header && is_in_block {
    shown = shown $0 "\n"
    next
}

marked != "" {
    fail("the snippet marker is not followed by a block of code")
    marked = ""
}

mode == "fill"

END {
    if (mode == "check") {
        for (key in regions) {
            if (!(key in used)) {
                print regions[key] ": no text shows the snippet " key > "/dev/stderr"
                failures++
            }
        }
    }
    exit failures > 0
}
