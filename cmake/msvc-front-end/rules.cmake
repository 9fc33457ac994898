# Reads the code without generating machine code; the results that CMake expects are empty files.
string(REPLACE " -c " " /Zs " read "${CMAKE_CXX_COMPILE_OBJECT}")
set(CMAKE_CXX_COMPILE_OBJECT "${read}" "<CMAKE_COMMAND> -E touch <OBJECT>")
set(CMAKE_CXX_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
