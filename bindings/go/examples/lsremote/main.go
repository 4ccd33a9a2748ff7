// Lsremote lists the references of a Git repository over http or https, as the first step of a fetch does. It asks for the
// passwords of proxies on the console.
//
//	lsremote URL
package main

import (
	"bufio"
	"bytes"
	"context"
	"errors"
	"fmt"
	"io"
	"net/http"
	"os"
	"os/signal"
	"strconv"
	"strings"

	"kiv"
)

const service = "git-upload-pack"

func main() {
	if len(os.Args) != 2 {
		fmt.Fprintln(os.Stderr, "usage: lsremote URL")
		os.Exit(64)
	}
	ctx, stop := signal.NotifyContext(context.Background(), os.Interrupt)
	err := run(ctx, os.Args[1])
	stop()
	if err != nil {
		fmt.Fprintf(os.Stderr, "fatal: %v\n", err)
		os.Exit(128)
	}
}

func run(ctx context.Context, repository string) error {
	console := bufio.NewReader(os.Stdin)
	session, err := kiv.New("lsremote/1", kiv.OnChallenge(func(_ context.Context, challenge kiv.Challenge) (string, string, bool) {
		return ask(console, challenge)
	}))
	if err != nil {
		return err
	}
	defer session.Close()
	client := &http.Client{Transport: session.Transport(nil)}
	references, err := list(ctx, client, repository)
	for _, reference := range references {
		fmt.Println(reference)
	}
	return err
}

// ask reads a user name and a password from the console. A program for others would not show the password.
func ask(console *bufio.Reader, challenge kiv.Challenge) (string, string, bool) {
	if challenge.Attempt > 1 {
		fmt.Fprintf(os.Stderr, "%s refused that password\n", challenge.Proxy)
	}
	var answers [2]string
	for i, what := range []string{"Username", "Password"} {
		fmt.Fprintf(os.Stderr, "%s for %s: ", what, challenge.Proxy)
		line, err := console.ReadString('\n')
		if err != nil {
			return "", "", false
		}
		answers[i] = strings.TrimRight(line, "\r\n")
	}
	return answers[0], answers[1], true
}

// list reads what the server advertises: lines that each begin with their length, "0000" after a part, and the object's
// name, a blank and the reference in each line of the second part. The first of these also has the server's capabilities.
func list(ctx context.Context, client *http.Client, repository string) ([]string, error) {
	request, err := http.NewRequestWithContext(ctx, http.MethodGet, repository+"/info/refs?service="+service, nil)
	if err != nil {
		return nil, err
	}
	response, err := client.Do(request)
	if err != nil {
		return nil, err
	}
	defer response.Body.Close()
	if response.StatusCode != http.StatusOK {
		return nil, fmt.Errorf("%s: %s", repository, response.Status)
	}
	body := bufio.NewReader(response.Body)
	if first, err := readLine(body); err != nil || string(first) != "# service="+service {
		return nil, fmt.Errorf("%s is no repository", repository)
	}
	var references []string
	for parts := 1; ; {
		line, err := readLine(body)
		if err != nil {
			return nil, fmt.Errorf("%s: %w", repository, err)
		}
		if line != nil {
			line, _, _ = bytes.Cut(line, []byte{0})
			references = append(references, strings.Replace(string(line), " ", "\t", 1))
		} else if parts--; parts < 0 {
			return references, nil
		}
	}
}

// readLine returns a line without its end, or nil at the end of a part.
func readLine(body io.Reader) ([]byte, error) {
	var length [4]byte
	if _, err := io.ReadFull(body, length[:]); err != nil {
		return nil, err
	}
	size, err := strconv.ParseUint(string(length[:]), 16, 16)
	if err != nil || size == 0 {
		return nil, err
	}
	if size < 4 {
		return nil, errors.New("a line of no length")
	}
	line := make([]byte, size-4)
	_, err = io.ReadFull(body, line)
	return bytes.TrimSuffix(line, []byte("\n")), err
}
