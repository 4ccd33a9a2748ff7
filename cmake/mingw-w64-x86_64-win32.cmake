# As mingw-w64-x86_64.cmake, with the compiler whose run-time library uses Windows' own threads: what it builds does not
# contain winpthreads.
include(${CMAKE_CURRENT_LIST_DIR}/mingw-w64-x86_64.cmake)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-win32)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-win32)
