package kiv

import (
	"context"
	"errors"
	"math"
	"os"
	"syscall"
	"testing"
	"time"
)

func TestTextsSurviveBothWays(t *testing.T) {
	for _, text := range []string{"", "plain", "grüße", "日本", "a\U0001F600b"} {
		wide, err := wideText(text)
		if err != nil || goText(&wide[0]) != text {
			t.Errorf("%q: %v", text, err)
		}
	}
	if goText(nil) != "" {
		t.Error("null is empty")
	}
	var failed *StatusError
	if _, err := wideText("a\x00b"); !errors.As(err, &failed) || failed.Status != StatusBadArgument {
		t.Error(err)
	}
}

func TestVersions(t *testing.T) {
	for version, fits := range map[uint32]bool{0x00FFFF: false, 0x010000: true, 0x010203: true, 0x020000: false} {
		if versionFits(version) != fits {
			t.Errorf("%s", versionText(version))
		}
	}
	if versionText(0x010203) != "1.2.3" {
		t.Error(versionText(0x010203))
	}
}

func TestDurationsAreRoundedUpAndLimited(t *testing.T) {
	for given, expected := range map[time.Duration]uint32{
		0: 0, 1: 1, time.Millisecond: 1, 1500 * time.Microsecond: 2, time.Hour: 3600000,
		-time.Second: math.MaxUint32, -1: math.MaxUint32, math.MaxInt64: math.MaxUint32, 365 * 24 * time.Hour: math.MaxUint32,
	} {
		if got := limited(milliseconds(given)); got != expected {
			t.Errorf("%v: %d, expected %d", given, got, expected)
		}
	}
}

func TestAContextsDeadlineIsTheTimeOut(t *testing.T) {
	if timeOutOf(context.Background()) != 0 {
		t.Error("no deadline is the option's")
	}
	for _, test := range []struct {
		left        time.Duration
		least, most uint32
	}{{-time.Second, 1, 1}, {time.Minute, 59000, 60000}, {100 * 24 * time.Hour, noTimeOut, noTimeOut}, {math.MaxInt64, noTimeOut, noTimeOut}} {
		ctx, cancel := context.WithDeadline(context.Background(), time.Now().Add(test.left))
		if got := timeOutOf(ctx); got < test.least || got > test.most {
			t.Errorf("%v: %d", test.left, got)
		}
		cancel()
	}
}

func TestStatusesAreTheErrorsThatMeanTheSame(t *testing.T) {
	for status, same := range map[Status]error{
		StatusClosed: ErrClosed, StatusNotYet: ErrNotYet, StatusUnsupported: ErrUnsupported,
		StatusTimedOut: context.DeadlineExceeded, StatusCancelled: context.Canceled,
		statusSystem + 5: syscall.Errno(5),
	} {
		err := error(&StatusError{Status: status})
		if !errors.Is(err, same) || !errors.Is(err, &StatusError{Status: status}) {
			t.Errorf("%v is not %v", err, same)
		}
		if errors.Is(err, ErrNoRoute) || errors.Is(err, &StatusError{Status: StatusBadURL}) {
			t.Errorf("%v is too much", err)
		}
		if os.IsTimeout(err) != (status == StatusTimedOut) {
			t.Errorf("%v: time-out", err)
		}
	}
}

func TestSchemesAreTheFirstWords(t *testing.T) {
	got := schemesOf([]string{`Basic realm="a"`, "NTLM", ""})
	if len(got) != 2 || got[0] != "Basic" || got[1] != "NTLM" {
		t.Error(got)
	}
}
