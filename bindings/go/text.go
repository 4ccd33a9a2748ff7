package kiv

import (
	"fmt"
	"strings"
	"unicode/utf16"
	"unsafe"
)

// address returns what the DLL returned as a pointer. Its memory is the DLL's: Go's collector leaves it alone.
func address(result uintptr) *uint16 {
	return *(**uint16)(unsafe.Pointer(&result))
}

// goText copies a text of the DLL; a null one is empty.
func goText(text *uint16) string {
	if text == nil {
		return ""
	}
	length := 0
	for p := text; *p != 0; p = (*uint16)(unsafe.Add(unsafe.Pointer(p), 2)) {
		length++
	}
	return string(utf16.Decode(unsafe.Slice(text, length)))
}

// wideText returns a text as the DLL takes it. One that holds a NUL would be cut there, and is refused.
func wideText(text string) ([]uint16, error) {
	if strings.IndexByte(text, 0) >= 0 {
		return nil, &StatusError{Status: StatusBadArgument, text: "a text contains a NUL character"}
	}
	return append(utf16.Encode([]rune(text)), 0), nil
}

// wipe overwrites a password.
func wipe(text []uint16) {
	for i := range text {
		text[i] = 0
	}
}

func versionText(version uint32) string {
	return fmt.Sprintf("%d.%d.%d", version>>16, version>>8&0xFF, version&0xFF)
}

// versionFits tells whether a DLL of this version has what this module needs.
func versionFits(version uint32) bool {
	return version>>16 == minimumVersion>>16 && version >= minimumVersion
}
