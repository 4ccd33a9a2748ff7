// Names the proxy that a session decides for.
package main

import (
	"context"
	"fmt"
	"log"

	"kiv"
)

func main() {
	session, err := kiv.New("consumer/1", kiv.Preferred("proxy.test:8080", "", ""), kiv.Test(kiv.TestNone))
	if err != nil {
		log.Fatal(err)
	}
	defer session.Close()
	decision, err := session.Resolve(context.Background(), "http://host.test/")
	if err != nil {
		log.Fatal(err)
	}
	fmt.Println(decision)
}
