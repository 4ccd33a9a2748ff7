//go:build !windows

package kiv

import (
	"errors"
	"testing"
)

func TestElsewhereNothingIsSupported(t *testing.T) {
	if session, err := New("app/1"); session != nil || !errors.Is(err, ErrUnsupported) {
		t.Errorf("%v, %v", session, err)
	}
}
