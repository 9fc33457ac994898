# The code is read, and no machine code made of it; what CMake takes for its results are empty files.
string(REPLACE " -c " " /Zs " read "${CMAKE_CXX_COMPILE_OBJECT}")
set(CMAKE_CXX_COMPILE_OBJECT "${read}" "<CMAKE_COMMAND> -E touch <OBJECT>")
set(CMAKE_CXX_LINK_EXECUTABLE "<CMAKE_COMMAND> -E touch <TARGET>")
