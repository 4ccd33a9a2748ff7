@echo off
rem Runs the programs of one kind that test kiv on this machine, and prints one line for each.
rem
rem   run.cmd unit, interface, throwing, tool or selfcheck, and [FOLDER]
rem   run.cmd exceptions [FOLDER]     builds the programs that throw with Visual C++, and runs them
rem   run.cmd build PRESET            builds the sources with Visual C++ or clang-cl, by a preset of CMake
rem
rem FOLDER has bin\, abi\ and lib\, as the build lays them out; it is two folders above this file unless it is named.
rem What the programs count and print goes to FOLDER\results. Exit code: 0 if all of them ended with 0, 64 for a wrong
rem command line, otherwise 1.
setlocal
set "kind=%~1"
set failed=0
for %%k in (unit interface throwing tool selfcheck exceptions) do if "%kind%"=="%%k" goto run_kind
if "%kind%"=="build" if not "%~2"=="" goto build
echo Usage: run.cmd unit, interface, throwing, tool, selfcheck or exceptions, and [FOLDER]; or run.cmd build PRESET
exit /b 64

:run_kind
set "folder=%~2"
if not defined folder set "folder=%~dp0..\.."
for %%f in ("%folder%") do set "folder=%%~ff"
set "results=%folder%\results"
if not exist "%results%" mkdir "%results%"
call :%kind%
exit /b %failed%

:unit
call :run_google_test kiv-unit-tests
exit /b

:tool
call :run_google_test kiv-tool-tests
exit /b

rem A prompt would wait for somebody. What needs a system without some of its libraries runs in Wine only.
:interface
call :run abi_test abi\abi_test.exe --without-prompts
call :run planted_libraries_test abi\planted\planted_libraries_test.exe --without-prompts
for %%n in (session_abi_test session_threads_test process_exit_test threads_test) do call :run %%n abi\%%n.exe
for %%u in (parse request throw version session script) do call :run unloading_test_%%u abi\unloading_test.exe %%u
exit /b

:throwing
for %%n in (throwing session_throwing) do for %%c in (gcc visual_c c) do call :run %%n_%%c abi\%%n_%%c.exe
exit /b

:selfcheck
call :run kiv-selfcheck bin\kiv-selfcheck.exe --json "%results%\selfcheck.json" --report "%results%\selfcheck.html"
exit /b

rem With its own run-time library, linked statically; the others have clang's code, and the system's vcruntime140.dll.
:exceptions
call :find_visual_c
if not "%failed%"=="0" exit /b
call :compile throwing_cl kiv scenarios.c system_exceptions.c cpp_exceptions.cpp
call :compile throwing_c_cl kiv scenarios.c system_exceptions.c raised_exceptions.c
call :compile session_throwing_cl kiv-session session_scenarios.c cpp_exceptions.cpp
call :compile session_throwing_c_cl kiv-session session_scenarios.c raised_exceptions.c
for %%n in (throwing_cl throwing_c_cl session_throwing_cl session_throwing_c_cl) do call :run %%n abi\%%n.exe
exit /b

:build
call :find_visual_c
if not "%failed%"=="0" exit /b 1
cd /d "%~dp0..\.."
cmake --preset %~2
if errorlevel 1 exit /b 1
cmake --build --preset %~2
if errorlevel 1 exit /b 1
exit /b 0

rem run NAME PROGRAM [ARGUMENT...]: from the program's own folder. A crash has a negative exit code.
:run
set "program=%folder%\%~2"
if not exist "%program%" (
  echo MISSING  %~1: there is no %~2
  set failed=1
  exit /b
)
set "KIV_RESULTS=%results%\%~1.json"
for %%p in ("%program%") do pushd "%%~dpp"
"%program%" %3 %4 %5 %6 >"%results%\%~1.txt" 2>&1
set "code=%errorlevel%"
popd
if "%code%"=="0" (
  echo ok       %~1
  exit /b
)
echo FAILED   %~1: exit code %code%
type "%results%\%~1.txt"
set failed=1
exit /b

:run_google_test
call :run %~1 bin\%~1.exe --gtest_brief=1 "--gtest_output=json:%results%\%~1.json"
exit /b

rem compile NAME DLL SOURCE...: a program beside the DLLs. What callbacks throw passes through functions of C (/EHs).
:compile
pushd "%~dp0..\abi\throwing"
cl /nologo /W3 /O2 /std:c11 /std:c++17 /EHs /EHc- "/I%~dp0..\..\include" %3 %4 %5 "/Fo%results%\\" ^
  "/Fe%folder%\abi\%~1.exe" "%folder%\lib\%~2.lib" "%folder%\lib\observer.lib" >"%results%\%~1.build.txt" 2>&1
set "code=%errorlevel%"
popd
if "%code%"=="0" exit /b
echo FAILED   %~1: not compiled
type "%results%\%~1.build.txt"
set failed=1
exit /b

rem Visual Studio's own program tells where the compiler is; a developer command prompt has it already.
:find_visual_c
if defined VCINSTALLDIR exit /b
set "variables="
pushd "%ProgramFiles(x86)%\Microsoft Visual Studio\Installer" 2>nul || goto no_visual_c
for /f "delims=" %%v in ('.\vswhere.exe -latest -products * -requires Microsoft.VisualStudio.Component.VC.Tools.x86.x64 ^
  -property installationPath') do set "variables=%%v\VC\Auxiliary\Build\vcvars64.bat"
popd
if not defined variables goto no_visual_c
call "%variables%" >nul
exit /b
:no_visual_c
echo MISSING  Visual C++
set failed=1
exit /b
