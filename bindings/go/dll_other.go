//go:build !windows || !(amd64 || arm64)

package kiv

// library is what there is only one of on Windows.
type library struct{}

func load(string) (*library, error) { return nil, ErrUnsupported }

func (*library) call(function, ...uintptr) uintptr { return 0 }
