# Turns every .css and .js file in RESOURCE_DIR into a byte array behind report_resource(name).
# Invoked by the build as: cmake -DOUT=<file.cpp> -DRESOURCE_DIR=<dir> -P embed_resources.cmake
file(GLOB files ${RESOURCE_DIR}/*.css ${RESOURCE_DIR}/*.js)
list(SORT files)
set(decls "")
set(lookups "")
foreach(f ${files})
  get_filename_component(name ${f} NAME)
  string(MAKE_C_IDENTIFIER ${name} ident)
  file(SIZE ${f} size)
  file(READ ${f} hex HEX)
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
  string(APPEND decls "const unsigned char data_${ident}[] = {${bytes} 0};\n")
  string(APPEND lookups "    if (name == \"${name}\") return std::string_view(reinterpret_cast<const char*>(data_${ident}), ${size});\n")
endforeach()
file(WRITE ${OUT}.tmp
"// Generated from src/report/resources by tools/embed_resources.cmake; do not edit.
#include \"report/resources.h\"

namespace veltrane {
namespace {
${decls}}  // namespace

std::string_view report_resource(std::string_view name) {
${lookups}    (void)name;
    return {};
}

}  // namespace veltrane
")
file(COPY_FILE ${OUT}.tmp ${OUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUT}.tmp)
