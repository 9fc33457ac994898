# Reads the code as Microsoft's compiler does, as far as one can on Debian: see README.md beside this.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_CXX_COMPILER clang-cl-19)
set(CMAKE_RC_COMPILER llvm-rc-19)
set(CMAKE_RC_FLAGS_INIT "-I /usr/include/wine/wine/windows")
set(CMAKE_MT llvm-mt-19)

set(flags
  --target=x86_64-pc-windows-msvc19.40 /EHsc
  # GNU extensions that have no name to be refused by. __uuidof is Microsoft's.
  -Wpedantic -Wgnu -Wno-language-extension-token
  -nostdinc)
# Where Microsoft's compiler finds its headers. As command-line options they have to be these: what
# -imsvc names falls to -nostdinc.
foreach(directory
    ${CMAKE_CURRENT_LIST_DIR}/../../build/libc++/usr/lib/llvm-19/include/c++/v1
    /usr/lib/llvm-19/lib/clang/19/include
    ${CMAKE_CURRENT_LIST_DIR}/include
    /usr/include/wine/wine/msvcrt
    /usr/include/wine/wine/windows)
  list(APPEND flags -Xclang -internal-isystem -Xclang "\"${directory}\"")
endforeach()
# What Wine's headers and libc++'s ask for to be those of Microsoft's C runtime. The intrinsic is in
# Wine's winnt.h otherwise, which clang has too.
foreach(definition
    WINE_UNICODE_NATIVE _UCRT _MSVCR_VER=140 _LIBCPP_NO_VCRUNTIME _LIBCPP_HAS_THREAD_API_WIN32
    _InterlockedCompareExchange128=Wine_InterlockedCompareExchange128)
  list(APPEND flags -D${definition})
endforeach()
list(JOIN flags " " CMAKE_CXX_FLAGS_INIT)

# Nothing is linked, not even a program for CMake to try the compiler with.
set(CMAKE_CXX_COMPILER_WORKS ON)
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX ${CMAKE_CURRENT_LIST_DIR}/rules.cmake)
