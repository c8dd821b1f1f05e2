# cmake -DINPUT=<file> -DOUTPUT=<file.cpp> -DSYMBOL=<name> -P EmbedText.cmake
# Writes the file's bytes as a C++ array <SYMBOL> (NUL-ended) and its size
# <SYMBOL>Size, so that a text ships inside the program from its one source.
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
string(REGEX REPLACE "((',[^,]*){16})" "\\1\n    " bytes "${bytes}")
file(WRITE "${OUTPUT}.tmp"
"// Generated from ${INPUT}; edit that file instead.\n"
"extern const char ${SYMBOL}[] = {\n    ${bytes}'\\0'};\n"
"extern const long ${SYMBOL}Size = ${size};\n")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
