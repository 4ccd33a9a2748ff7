// Download saves a file as an updater does: through whatever proxy the session decides for, once more by another route if
// one fails, and never half a file.
//
//	download [-user NAME -password-file FILE] URL FILE
package main

import (
	"context"
	"errors"
	"flag"
	"fmt"
	"io"
	"net/http"
	"os"
	"os/signal"
	"path/filepath"
	"strings"
	"time"

	"kiv"
)

const attempts = 3

func main() {
	user := flag.String("user", "", "user name for proxies")
	passwordFile := flag.String("password-file", "", "file that holds the password for proxies")
	flag.Parse()
	if flag.NArg() != 2 {
		fmt.Fprintln(os.Stderr, "usage: download [-user NAME -password-file FILE] URL FILE")
		os.Exit(64)
	}
	ctx, stop := signal.NotifyContext(context.Background(), os.Interrupt)
	err := run(ctx, login{*user, *passwordFile}, flag.Arg(0), flag.Arg(1))
	stop()
	if err != nil {
		fmt.Fprintln(os.Stderr, err)
		os.Exit(1)
	}
}

// login answers a proxy's first question from the command line. A program with a window shows a dialog.
type login struct{ user, passwordFile string }

func (l login) ask(_ context.Context, challenge kiv.Challenge) (string, string, bool) {
	password, err := os.ReadFile(l.passwordFile)
	if err != nil || challenge.Attempt > 1 {
		return "", "", false
	}
	return l.user, strings.TrimRight(string(password), "\r\n"), true
}

func run(ctx context.Context, login login, url, file string) error {
	session, err := kiv.New("download/1", kiv.OnChallenge(login.ask))
	if err != nil {
		return err
	}
	defer session.Close()
	client := &http.Client{Transport: session.Transport(nil)}
	for attempt := 1; ; attempt++ {
		err := download(ctx, client, url, file)
		if err == nil || attempt == attempts || !mayPass(err) {
			return err
		}
		fmt.Fprintf(os.Stderr, "%v; trying again\n", err)
		select {
		case <-time.After(time.Second):
		case <-ctx.Done():
			return ctx.Err()
		}
	}
}

// mayPass tells whether another attempt may succeed: the session has been told what failed, and takes another route.
func mayPass(err error) bool {
	for _, final := range []error{context.Canceled, kiv.ErrNoRoute, kiv.ErrAuthUnsupported, kiv.ErrCredentialsRefused, errStatus} {
		if errors.Is(err, final) {
			return false
		}
	}
	return true
}

var errStatus = errors.New("the server does not have the file")

// download writes to a file beside the wanted one, which it becomes when it is complete.
func download(ctx context.Context, client *http.Client, url, file string) error {
	request, err := http.NewRequestWithContext(ctx, http.MethodGet, url, nil)
	if err != nil {
		return err
	}
	response, err := client.Do(request)
	if err != nil {
		return err
	}
	defer response.Body.Close()
	if response.StatusCode != http.StatusOK {
		return fmt.Errorf("%w: %s", errStatus, response.Status)
	}
	part, err := os.CreateTemp(filepath.Dir(file), filepath.Base(file)+".part*")
	if err != nil {
		return err
	}
	defer os.Remove(part.Name())
	_, err = io.Copy(part, response.Body)
	if closing := part.Close(); err == nil {
		err = closing
	}
	if err != nil {
		return err
	}
	return os.Rename(part.Name(), file)
}
