# Turns the data lines of wire.txt into a C++ source, so that the test binary carries the
# corpus wherever it runs. Run at build time: cmake -DIN=wire.txt -DOUT=wire_data.cpp -P embed.cmake
file(STRINGS "${IN}" lines REGEX "^[a-z]")
list(LENGTH lines count)
list(TRANSFORM lines PREPEND "    \"")
list(TRANSFORM lines APPEND "\",\n")
list(JOIN lines "" body)
file(WRITE "${OUT}"
  "// Generated from tests/golden/wire.txt by tests/golden/embed.cmake; do not edit.\n"
  "namespace trdcomp::golden {\n"
  "extern const char* const kWireLines[];\n"
  "extern const int kWireLineCount;\n"
  "const char* const kWireLines[] = {\n${body}    nullptr};\n"
  "const int kWireLineCount = ${count};\n"
  "}  // namespace trdcomp::golden\n")
