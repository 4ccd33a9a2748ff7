/* What the tables of a loaded DLL say: its exports, and the libraries that it names. */
#ifndef KIV_TESTS_MODULE_TABLES_H
#define KIV_TESTS_MODULE_TABLES_H

#include <string.h>

#include <windows.h>

#include "check.h"

static const IMAGE_DATA_DIRECTORY* directory(const BYTE* base, int index) {
  const IMAGE_DOS_HEADER* dos = (const IMAGE_DOS_HEADER*)base;
  const IMAGE_NT_HEADERS64* nt = (const IMAGE_NT_HEADERS64*)(base + dos->e_lfanew);
  CHECK(nt->FileHeader.Machine == IMAGE_FILE_MACHINE_AMD64);
  return &nt->OptionalHeader.DataDirectory[index];
}

/* It exports these, sorted, and nothing else. */
static void check_exports(const wchar_t* module, const char* const* expected, DWORD count) {
  const BYTE* base = (const BYTE*)GetModuleHandleW(module);
  const IMAGE_DATA_DIRECTORY* entry = directory(base, IMAGE_DIRECTORY_ENTRY_EXPORT);
  const IMAGE_EXPORT_DIRECTORY* exports = (const IMAGE_EXPORT_DIRECTORY*)(base + entry->VirtualAddress);
  const DWORD* names = (const DWORD*)(base + exports->AddressOfNames);
  CHECK(exports->NumberOfNames == count);
  CHECK(exports->NumberOfFunctions == count);
  for (DWORD i = 0; i < exports->NumberOfNames && i < count; ++i) {
    /* Both lists are sorted, the module's as the linker sorts: byte by byte. */
    CHECK(strcmp((const char*)(base + names[i]), expected[i]) == 0);
  }
}

static void check_imports(const wchar_t* module) {
  static const char* const system_libraries[] = {"kernel32.dll", "msvcrt.dll", "normaliz.dll", "winhttp.dll"};
  const BYTE* base = (const BYTE*)GetModuleHandleW(module);
  const IMAGE_DATA_DIRECTORY* entry = directory(base, IMAGE_DIRECTORY_ENTRY_IMPORT);
  const IMAGE_IMPORT_DESCRIPTOR* import = (const IMAGE_IMPORT_DESCRIPTOR*)(base + entry->VirtualAddress);
  for (; import->Name != 0; ++import) {
    int known = 0;
    for (size_t i = 0; i < sizeof system_libraries / sizeof system_libraries[0]; ++i) {
      known |= _stricmp((const char*)(base + import->Name), system_libraries[i]) == 0;
    }
    CHECK(known);
  }
}

#endif
