#!/usr/bin/env bash
# Compiles, for its errors only, what other compilers and standard libraries must take as well: all of it by clang with
# iterators that are classes, as Visual C++'s are, and kiv.hpp and session.hpp in C++17 and C++20, also as strictly as Visual C++
# with /permissive-.
# What that compiler's own library says of it cannot be had here.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
work=build/portability
mkdir -p "$work/class-iterators"
# The headers that the tool is compiled with.
[ -d build/windows-x64/headers ] || cmake --preset windows-x64 --log-level=WARNING >/dev/null

# Where clang finds the standard library of GCC for Windows, with POSIX's threads (and so with futures).
posix=$(x86_64-w64-mingw32-g++-posix -print-file-name=include/c++)

# GCC's library has pointers where Visual C++'s has classes. GCC's own vector shows how such an iterator is declared.
sed -E 's/typedef (const )?value_type\*(\s+)(const_)?iterator;/typedef __gnu_cxx::__normal_iterator<\1value_type*, array> \3iterator;/' \
  "$posix/array" >"$work/class-iterators/array"
sed -E 's/using const_iterator\s*= const value_type\*;/using const_iterator = __gnu_cxx::__normal_iterator<const value_type*, basic_string_view>;/
  /constexpr const_iterator$/,/\}/ s/return (.*);/return const_iterator(\1);/
  s/compare\(end\(\) - /compare(data() + size() - /' \
  "$posix/string_view" >"$work/class-iterators/string_view"
cat >"$work/class_iterators.cpp" <<'END'
#include <array>
#include <string_view>
static_assert(std::is_class_v<std::array<int, 1>::iterator> && std::is_class_v<std::array<int, 1>::const_iterator>);
static_assert(std::is_class_v<std::string_view::iterator> && std::is_class_v<std::string_view::const_iterator>);
END

flags=(-std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Werror -DUNICODE -D_UNICODE -DWIN32_LEAN_AND_MEAN -DNOMINMAX
  -D_WIN32_WINNT=0x0601 -DKIV_BUILDING '-DKIV_VERSION="0"' -DKIV_VERSION_{MAJOR,MINOR,PATCH}=0 -Iinclude -Isrc -Isession
  -Itools -Iselfcheck -isystem "$work/class-iterators"
  -isystem build/windows-x64/headers)
# Without the file that needs the sources of BearSSL.
programs=$(find selfcheck tools examples "$work" -name '*.cpp' ! -name bearssl_stream.cpp | LC_ALL=C sort)
libraries=$(find session src -name '*.cpp' | LC_ALL=C sort)
failed=0

# each FILES COMMAND...: the command with each of the files.
each() {
  local files=$1
  shift
  xargs -P "$(nproc)" -n 1 "$@" <<<"$files" || failed=1
}

windows=(clang++ --target=x86_64-w64-mingw32 "${flags[@]}" -nostdinc++ -isystem "$posix" -isystem "$posix/x86_64-w64-mingw32")
each "$programs" "${windows[@]}" -fsyntax-only

# A missing include of the DLLs' files shows in their own build, which compiles each alone. So what nearly all of them
# include is read only once here.
printf '#include <%s>\n' algorithm array chrono functional memory optional span string vector windows.h >"$work/common.h"
"${windows[@]}" -x c++-header "$work/common.h" -o "$work/common.pch"
each "$libraries" "${windows[@]}" -fsyntax-only -include-pch "$work/common.pch"

# Programs over kiv.hpp and session.hpp that use their templates. MinGW's C headers ask whether __declspec is a macro, as
# it is in GCC; for Visual C++ it is a keyword.
consumers=$(printf '%s\n' tests/package/consumer-{cpp,session}/main.cpp)
strict=(-fsyntax-only -Wall -Wextra -Wconversion -Wpedantic -Wshadow -Werror -Iinclude)
for standard in c++17 c++20; do
  each "$consumers" g++ "-std=$standard" "${strict[@]}"
  each "$consumers" x86_64-w64-mingw32-g++-posix "-std=$standard" "${strict[@]}"
  each "$consumers" x86_64-w64-mingw32-g++-win32 "-std=$standard" "${strict[@]}"  # without futures
  each "$consumers" clang++ "-std=$standard" "${strict[@]}"
  each "$consumers" clang++ --target=x86_64-pc-windows-msvc -nostdinc++ -nostdlibinc -isystem "$posix" \
    -isystem "$posix/x86_64-w64-mingw32" -isystem /usr/share/mingw-w64/include -D__declspec=__declspec \
    -fno-ms-compatibility -fno-delayed-template-parsing -fexceptions -fcxx-exceptions "-std=$standard" "${strict[@]}"
done
exit "$failed"
