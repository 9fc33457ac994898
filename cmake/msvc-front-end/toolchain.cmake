# Reads the code as Microsoft's compiler does, as far as possible on Debian: see README.md here.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(CMAKE_CXX_COMPILER clang-cl-19)
set(CMAKE_RC_COMPILER llvm-rc-19)
set(CMAKE_RC_FLAGS_INIT "-I /usr/include/wine/wine/windows")
set(CMAKE_MT llvm-mt-19)

set(flags
  --target=x86_64-pc-windows-msvc19.40 /EHsc
  # GNU extensions that refused_names.py cannot name. __uuidof is Microsoft's.
  -Wpedantic -Wgnu -Wno-language-extension-token
  -nostdinc)
# Where Microsoft's compiler finds its headers. They must be given as these options: -nostdinc drops
# those of -imsvc.
foreach(directory
    ${CMAKE_CURRENT_LIST_DIR}/../../build/libc++/usr/lib/llvm-19/include/c++/v1
    /usr/lib/llvm-19/lib/clang/19/include
    ${CMAKE_CURRENT_LIST_DIR}/include
    /usr/include/wine/wine/msvcrt
    /usr/include/wine/wine/windows)
  list(APPEND flags -Xclang -internal-isystem -Xclang "\"${directory}\"")
endforeach()
# Makes Wine's headers and libc++'s those of Microsoft's C runtime. Otherwise Wine's winnt.h defines the
# intrinsic, which clang has too.
foreach(definition
    WINE_UNICODE_NATIVE _UCRT _MSVCR_VER=140 _LIBCPP_NO_VCRUNTIME _LIBCPP_HAS_THREAD_API_WIN32
    _InterlockedCompareExchange128=Wine_InterlockedCompareExchange128)
  list(APPEND flags -D${definition})
endforeach()
list(JOIN flags " " CMAKE_CXX_FLAGS_INIT)

# Nothing is linked, not even CMake's test of the compiler.
set(CMAKE_CXX_COMPILER_WORKS ON)
set(CMAKE_USER_MAKE_RULES_OVERRIDE_CXX ${CMAKE_CURRENT_LIST_DIR}/rules.cmake)
