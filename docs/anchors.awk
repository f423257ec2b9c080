# For scripts/docs: links to headings work in the repository by names made of the headings' words. Doxygen knows no such
# names, so each heading is given one, and the links inside a document go there: "the-keychain" of formats.md becomes
# "formats-the-keychain", since other documents have such a heading, too.
FNR == 1 {
    page = FILENAME
    gsub(/.*\/|\.md$/, "", page)
}
/^```/ { code = !code }
!code && /^##+ / {
    name = $0
    sub(/^#+ /, "", name)
    name = tolower(name)
    gsub(/[^a-z0-9 -]/, "", name)
    gsub(/ /, "-", name)
    print $0 " {#" page "-" name "}"
    next
}
!code {
    gsub(/\]\(#/, "](#" page "-")
    # A link into another document goes to its beginning.
    while (match($0, /\.md#[a-z-]+\)/)) $0 = substr($0, 1, RSTART + 2) substr($0, RSTART + RLENGTH - 1)
}
{ print }
