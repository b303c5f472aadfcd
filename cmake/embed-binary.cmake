# Writes a C++ source that holds the bytes of a file as a constant array, for a resource that
# the Linux program carries compiled in where the Windows image carries the file itself.
#   cmake -DINPUT=file -DOUTPUT=file.cpp -DHEADER=res/x.h -DNAME=g_rgbX -P embed-binary.cmake
# NAME is the array (const BYTE[]); NAME's size is c<NAME without its "g_rgb"> as a size_t:
# g_rgbOrvTypeLib and g_cbOrvTypeLib.
file(READ "${INPUT}" hex HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
# Sixteen bytes a line.
string(REGEX REPLACE "((0x..,){16})" "\\1\n    " bytes "${bytes}")
string(REGEX REPLACE "^g_rgb" "g_cb" size_name "${NAME}")
get_filename_component(input_name "${INPUT}" NAME)
file(WRITE "${OUTPUT}.tmp"
     "// Generated from ${input_name} by cmake/embed-binary.cmake.\n"
     "#include \"${HEADER}\"\n\n"
     "extern const BYTE ${NAME}[] = {\n    ${bytes}\n};\n"
     "extern const size_t ${size_name} = sizeof(${NAME});\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
