# cmake -D OUTPUT=file -D FILES="a;b" -P EmbedPage.cmake: writes a C++ source that holds the files, each as an array,
# and the list of them.
set(arrays "")
set(rows "")
foreach(file IN LISTS FILES)
    get_filename_component(name ${file} NAME)
    string(MAKE_C_IDENTIFIER ${name} identifier)
    file(READ ${file} content HEX)
    string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," content "${content}")
    # Lines that a person and a compiler can bear.
    string(REGEX REPLACE "(('[^']*',){20})" "\\1\n    " content "${content}")
    string(APPEND arrays "constexpr char ${identifier}[] = {\n    ${content}};\n\n")
    string(APPEND rows "    {\"${name}\", {${identifier}, sizeof ${identifier}}},\n")
endforeach()
file(WRITE ${OUTPUT} "#include \"tools/page/PageAssets.h\"

namespace quillkit {

namespace {

${arrays}constexpr PageAsset kAssets[] = {
${rows}};

}  // namespace

std::span<const PageAsset> pageAssets() {
    return kAssets;
}

}  // namespace quillkit
")
