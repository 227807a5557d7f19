# Shows a header as if its macros were written out: SORN_VALUE_TYPE as readers and mutators, SORN_ENUM as an
# enumeration, BELMO_INDEX as the class that it makes. A macro's lines become one, and the rest empty.

function trimmed(text) {
    gsub(/^[ \t\n]+|[ \t\n]+$/, "", text)
    gsub(/[ \t\n]+/, " ", text)
    return text
}
# Splits at the commas outside of all brackets.
function split_list(text, parts,    i, depth, character, count, part) {
    depth = count = 0
    part = ""
    for (i = 1; i <= length(text); ++i) {
        character = substr(text, i, 1)
        if (character ~ /[({<[]/) ++depth
        if (character ~ /[)}>\]]/) --depth
        if (character == "," && depth == 0) {
            parts[++count] = trimmed(part)
            part = ""
        } else {
            part = part character
        }
    }
    parts[++count] = trimmed(part)
    return count
}
function inner(text) { return substr(text, 2, length(text) - 2) }

function value_type(count, parts,    i, attribute, text) {
    text = "public:"
    for (i = 3; i <= count; ++i) {
        split_list(inner(parts[i]), attribute)
        text = text " /** The attribute `" attribute[2] "`; `" attribute[3] "` unless set. */ " \
            attribute[1] " const& " attribute[2] "() const;" \
            " /** Sets it. */ " parts[2] "& " attribute[2] "Is(" attribute[1] " const& value);"
    }
    return text
}
function enumeration(count, parts,    i, enumerator, text) {
    text = "enum class " parts[1] " : " parts[2] " {"
    for (i = 3; i <= count; ++i) {
        split_list(inner(parts[i]), enumerator)
        text = text " " enumerator[1] " = " enumerator[2] ","
    }
    return text " };"
}
function ranged_index(parts) {
    return "class " parts[2] " : public Belmo::RangedIndex { public: /** The least. */ static constexpr " parts[3] \
        " " parts[4] " = " parts[5] "; /** The greatest. */ static constexpr " parts[3] " " parts[6] " = " parts[7] "; };"
}

# The number of brackets that are still open in a text.
function open_in(text) { return gsub(/\(/, "(", text) - gsub(/\)/, ")", text) }

# Links within a page: doxygen does not know the names that headings have elsewhere.
FILENAME ~ /\.md$/ {
    gsub(/\]\(#[a-z0-9-]+\)/, "]")
    print
    next
}
!collecting && /^ *(SORN_VALUE_TYPE|SORN_ENUM|BELMO_INDEX)\(/ {
    collecting = 1
    collected = ""
    lines = 0
}
collecting {
    collected = collected "\n" $0
    ++lines
    if (open_in(collected) > 0) next
    collecting = 0
    match(collected, /[A-Z_]+\(/)
    macro = substr(collected, RSTART, RLENGTH - 1)
    text = substr(collected, RSTART + RLENGTH)
    sub(/\);?[^)]*$/, "", text)
    delete parts
    count = split_list(text, parts)
    if (macro == "SORN_VALUE_TYPE") print value_type(count, parts)
    if (macro == "SORN_ENUM") print enumeration(count, parts)
    if (macro == "BELMO_INDEX") print ranged_index(parts)
    while (--lines > 0) print ""
    next
}
{ print }
