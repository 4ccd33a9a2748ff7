#!/usr/bin/env bash
# Packs, unpacks elsewhere, and builds and runs programs that have nothing but the package.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build wine consumer
trap stop_wine EXIT

version=$(project_version)
name=kiv-$version-windows-x64
work=build/package-test
kiv=$PWD/$work/elsewhere/$name

# same_lines EXPECTED COMMAND...: what the command prints is that, but for Windows' line ends.
same_lines() {
  local expected=$1 said
  shift
  said=$("$@") || return
  diff <(printf '%s\n' "$expected") <(printf '%s\n' "$said" | tr -d '\r')
}

has_all_files() {
  diff tests/package/files.txt <(cd "$kiv" && find . -type f -printf '%P\n' | grep -v '^share/doc/kiv/docs/' | LC_ALL=C sort)
}

# exported_names LIST: what a DLL exports, as the tests of the interface list it.
exported_names() {
  grep -oE 'X\(Kiv[A-Za-z_0-9]+\)' "tests/abi/$1" | sed -E 's/X\((.*)\)/\1/' | LC_ALL=C sort
}

# (objdump of binutils 2.44 writes "[   0] +base[   1]  0000 NAME" where that of 2.40 writes "[   0] NAME".)
names_its_exports() {
  local name=$1 list=$2
  diff <(exported_names "$list") <(x86_64-w64-mingw32-objdump -p "$kiv/bin/$name.dll" |
    sed -nE 's/^\s+\[ *[0-9]+\] .*\b(Kiv\w+)$/\1/p' | LC_ALL=C sort) &&
    diff <(exported_names "$list") <(sed -n 's/^    //p' "$kiv/lib/$name.def")
}

# The import library that others make from kiv.def serves as well as ours.
def_makes_an_import_library() {
  x86_64-w64-mingw32-dlltool -m i386:x86-64 -d "$kiv/lib/kiv.def" -l "$work/libkiv.a" &&
    x86_64-w64-mingw32-g++-posix -std=c++17 -static -I"$kiv/include" tests/package/consumer-cpp/main.cpp "$work/libkiv.a" \
      -o "$work/from_def.exe" && cp "$kiv/bin/kiv.dll" "$work" && in_wine "$work/from_def.exe"
}

# With the compiler of the releases. What a newer one brings is larger: GCC 14 makes 213,000 bytes of it.
is_small() {
  local name=$1 limit=$2
  [ "$(x86_64-w64-mingw32-g++-win32 -dumpversion | cut -d- -f1 | cut -d. -f1)" -le 12 ] || limit=$((limit + 40000))
  [ "$(stat -c %s "$kiv/bin/$name.dll")" -lt "$limit" ]
}

# What programs do to others, and virus scanners distrust.
imports_nothing_dubious() {
  x86_64-w64-mingw32-objdump -p "$kiv/bin/$1.dll" >"$work/imports.txt"
  # The list is there.
  grep -qw WinHttpOpen "$work/imports.txt" &&
    ! grep -E '\b(SuspendThread|SetThreadContext|OpenProcess|AddVectoredExceptionHandler)$' "$work/imports.txt"
}

# libraries NAME KIND: the DLL's imported libraries of that kind, as LLVM reads its directories.
libraries() {
  llvm-readobj --coff-imports "$kiv/bin/$1.dll" | sed -nE "/^$2 \{/,/^\}/ s/^  Name: (.*)/\L\1/p" | LC_ALL=C sort
}

# names_its_libraries NAME DELAYED...
names_its_libraries() {
  local name=$1
  shift
  diff <(printf '%s\n' kernel32.dll msvcrt.dll normaliz.dll winhttp.dll) <(libraries "$name" Import) &&
    diff <(printf '%s\n' "$@") <(libraries "$name" DelayImport)
}

holds_no_path_of_this_machine() {
  ! grep -rlF "$PWD" "$kiv"
}

# build_consumer LANGUAGE [ARGUMENT...]: configures it against the unpacked package, and builds it.
build_consumer() {
  local language=$1
  shift
  cmake -S "tests/package/consumer-$language" -B "$work/$language" -G Ninja "-Dkiv_DIR=$kiv/lib/cmake/kiv" "$@" && cmake --build "$work/$language" &&
    cp "$kiv"/bin/*.dll "$work/$language"
}

# flags_of LIBRARY: what pkg-config says of it.
flags_of() { PKG_CONFIG_LIBDIR=$kiv/lib/pkgconfig pkg-config --cflags --libs "$1"; }

# build_with_pkg_config LIBRARY SOURCE NAME ARGUMENT...: the program in C++17, by this compiler.
build_with_pkg_config() {
  local library=$1 source=$2 name=$3 flags
  shift 3
  read -ra flags <<<"$(flags_of "$library")"
  mkdir -p "$work/pkg-config"
  "$@" -std=c++17 "tests/package/$source" "${flags[@]}" -o "$work/pkg-config/$name.exe" &&
    cp "$kiv"/bin/*.dll "$work/pkg-config"
}

# link_by_lld LIBRARY SOURCE NAME TARGET ARGUMENT...: the program that has no other library, as LLVM's tools link for this
# system.
link_by_lld() {
  local library=$1 source=$2 name=$3 target=$4 flags
  shift 4
  read -ra flags <<<"$(flags_of "$library")"
  mkdir -p "$work/lld"
  clang "--target=$target" -ffreestanding -isystem tests/package/consumer-visual-c/include -fuse-ld=lld -nostdlib \
    "tests/package/consumer-visual-c/$source" "${flags[@]}" "$@" -o "$work/lld/$name.exe" &&
    cp "$kiv"/bin/*.dll "$work/lld"
}

build_visual_c_consumers() {
  build_consumer visual-c --toolchain "$PWD/tests/package/consumer-visual-c/toolchain.cmake" &&
    grep -F "$kiv/lib/kiv.lib" "$work/visual-c/build.ninja" &&
    grep -F "$kiv/lib/kiv-session.lib" "$work/visual-c/build.ninja"
}

# ends_with CODE COMMAND...: the command's exit code is that.
ends_with() {
  local code=$1 status=0
  shift
  "$@" || status=$?
  [ "$status" = "$code" ]
}

# refuses TEXT ARGUMENT...: find_package ends with a message that contains the text.
refuses() {
  local text=$1 said=$work/refusal.log
  shift
  rm -rf "$work/refused"
  ! cmake -S tests/package/consumer-cpp -B "$work/refused" -G Ninja "-Dkiv_DIR=$kiv/lib/cmake/kiv" "$@" >"$said" 2>&1 &&
    tr -s '\n ' ' ' <"$said" | grep -F "$text"
}

rm -rf "$work"
mkdir -p "$work/elsewhere"
check 'The package is made' scripts/package.sh
check 'It unpacks' unzip -q "build/release/$name.zip" -d "$work/elsewhere"
check 'It holds what belongs in it' has_all_files
check 'It holds no path of the machine that made it' holds_no_path_of_this_machine
check 'kiv.dll and kiv.def name the functions of the headers' names_its_exports kiv exports.h
check 'kiv-session.dll and kiv-session.def name the functions of the header' names_its_exports kiv-session session_exports.h
check 'kiv.dll is small' is_small kiv 185000
check 'kiv-session.dll is small' is_small kiv-session 400000
for name in kiv kiv-session; do
  check "$name.dll imports nothing that virus scanners distrust" imports_nothing_dubious $name
done
check 'kiv.dll names the libraries that it loads, at once or delayed' names_its_libraries kiv credui.dll crypt32.dll \
  ole32.dll
check 'kiv-session.dll names the libraries that it loads, at once or delayed' names_its_libraries kiv-session \
  advapi32.dll crypt32.dll secur32.dll ws2_32.dll
windows=(--toolchain "$PWD/cmake/mingw-w64-x86_64.cmake")
gcc=x86_64-w64-mingw32-g++-posix
visual_c=(-Wl,/entry:start -Wl,/subsystem:console)
check 'A program in C is built' build_consumer c "${windows[@]}"
check 'A program in C++17 is built' build_consumer cpp "${windows[@]}"
check 'Programs over the session, in C and C++17, are built' build_consumer session "${windows[@]}"
check 'A program is built by pkg-config' build_with_pkg_config kiv consumer-cpp/main.cpp shared $gcc
check 'A static program is built by pkg-config' build_with_pkg_config kiv consumer-cpp/main.cpp static $gcc -static
check 'A static program over the session is built by pkg-config' build_with_pkg_config kiv-session \
  consumer-session/main.cpp session $gcc -static
check 'A static program is linked by lld' link_by_lld kiv main.c static x86_64-w64-mingw32 -static -Wl,--entry=start
check 'A static program over the session is linked by lld' link_by_lld kiv-session session.c session x86_64-w64-mingw32 \
  -static -Wl,--entry=start
check 'Programs of the kind of Visual C++ are built, with kiv.lib and kiv-session.lib' build_visual_c_consumers
check 'A program of the kind of Visual C++ is built by pkg-config' link_by_lld kiv main.c visual_c \
  x86_64-pc-windows-msvc "${visual_c[@]}"
check 'One over the session is built by pkg-config' link_by_lld kiv-session session.c session_visual_c \
  x86_64-pc-windows-msvc "${visual_c[@]}"

about=(in_wine "$work/c/consumer_c.exe" socks5://gate)
resource=$'\nCompanyName kiv\nFileDescription '
check 'The program in C runs, and sees the version of the DLL' same_lines \
  "proxy socks5://gate"$'\n'"file $version product $version${resource}Finds out how to connect to a URL"$'\nOriginalFilename kiv.dll' \
  "${about[@]}" kiv.dll
check 'It sees the version of kiv-session.dll' same_lines \
  "proxy socks5://gate"$'\n'"file $version product $version${resource}Finds and remembers how to connect to URLs"$'\nOriginalFilename kiv-session.dll' \
  "${about[@]}" kiv-session.dll
cp "$kiv/bin/kiv-resolve.exe" "$work/c"
check 'It sees the version of kiv-resolve' same_lines \
  "proxy socks5://gate"$'\n'"file $version product $version${resource}Finds the proxy that works for a URL, and shows why"$'\nOriginalFilename kiv-resolve.exe' \
  "${about[@]}" kiv-resolve.exe
outcome=$'http://living:8080 as pam\nthe client broke'
check 'The program in C++17 runs' same_lines "$outcome" in_wine "$work/cpp/consumer_cpp.exe"
check 'The static program that pkg-config built runs' same_lines "$outcome" in_wine "$work/pkg-config/static.exe"
check 'The program that lld linked runs' ends_with 42 in_wine "$work/lld/static.exe"
check 'The program of the kind of Visual C++ runs' ends_with 42 in_wine "$work/visual-c/consumer_visual_c.exe"
check 'The one that pkg-config built runs' ends_with 42 in_wine "$work/lld/visual_c.exe"
for program in session/consumer_session session/consumer_session_cpp pkg-config/session; do
  check "The program $program, over the session, runs" ends_with 4 in_wine "$work/$program.exe"
done
for program in visual-c/consumer_visual_c_session lld/session lld/session_visual_c; do
  check "The program $program, over the session, runs" ends_with 3 in_wine "$work/$program.exe"
done
check 'kiv.def makes an import library that serves' def_makes_an_import_library
check 'The tool in the package runs' in_wine "$kiv/bin/kiv-resolve.exe" --help

check 'A project for another system is told so' refuses 'library for 64-bit Windows'
check 'A project that wants another version is told so' refuses "kivConfig.cmake, version: $version" "${windows[@]}" \
  -DKIV_WANTED=2.0

report "$passed" "$failed"
